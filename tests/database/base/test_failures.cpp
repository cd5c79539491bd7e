// What a thread remembers of its failures, with memory and without.
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <atomic>
#include <string>
#include <thread>

#include "database/base/failures.h"
#include "database/base/logger.h"
#include "rov.h"
#include "rov_edit.h"

namespace {

std::atomic<bool> g_refuse{false};

constexpr const char* no_words =
    "out of memory, also for the words that say what went wrong: free some and try again";

}  // namespace

// The library's positions in files have 64 bits, so on most systems it calls the second one.
extern "C" {
void* __real_mmap(void* address, size_t length, int protection, int flags, int file, long offset);
void* __real_mmap64(void* address, size_t length, int protection, int flags, int file,
                    int64_t offset);
void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, long offset);
void* __wrap_mmap64(void* address, size_t length, int protection, int flags, int file,
                    int64_t offset);

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int file, long offset) {
  if (g_refuse.load()) return MAP_FAILED;
  return __real_mmap(address, length, protection, flags, file, offset);
}

void* __wrap_mmap64(void* address, size_t length, int protection, int flags, int file,
                    int64_t offset) {
  if (g_refuse.load()) return MAP_FAILED;
  return __real_mmap64(address, length, protection, flags, file, offset);
}
}

namespace {

// Runs in a thread that had no failure yet.
template <typename Work>
void in_new_thread(Work work) {
  std::thread(work).join();
}

// Another thread has the spare pages meanwhile.
class SpareTaken {
 public:
  SpareTaken() : thread_([this] { hold(); }) {
    while (!taken_.load()) std::this_thread::yield();
  }
  ~SpareTaken() {
    done_.store(true);
    thread_.join();
  }
  SpareTaken(const SpareTaken&) = delete;
  SpareTaken& operator=(const SpareTaken&) = delete;

 private:
  void hold() {
    g_refuse.store(true);
    rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 1);
    g_refuse.store(false);
    taken_.store(true);
    while (!done_.load()) std::this_thread::yield();
  }

  std::atomic<bool> taken_{false};
  std::atomic<bool> done_{false};
  std::thread thread_;
};

TEST(Failures, AThreadBeginsWithoutAny) {
  rov::fail(ROV_ERR_NO_ITEM, rov::Note::kNoDataSetName);
  in_new_thread([] {
    EXPECT_STREQ(rov_err_message(), "");
    rov_err_t err = {};
    EXPECT_EQ(rov_err_getprev(&err), uint32_t{ROV_ERR_NO_VALUE});
  });
}

TEST(Failures, TheNewestSixteenAreRemembered) {
  in_new_thread([] {
    for (uint32_t i = 1; i <= 20; ++i) rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, i);
    rov_err_t err = {};
    for (uint32_t i = 20; i >= 5; --i) {
      ASSERT_EQ(rov_err_getprev(&err), uint32_t{ROV_OK}) << i;
      EXPECT_EQ(err.seq, i);
      EXPECT_EQ(err.status, uint32_t{ROV_ERR_INVALID});
      EXPECT_EQ(std::string(err.message),
                "argument " + std::to_string(i) + " is missing or out of its range");
    }
    EXPECT_EQ(rov_err_getprev(&err), uint32_t{ROV_ERR_NO_VALUE});
  });
}

TEST(Failures, TheFirstHasNoneBeforeIt) {
  in_new_thread([] {
    rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 1);
    rov_err_t err = {};
    ASSERT_EQ(rov_err_getprev(&err), uint32_t{ROV_OK});
    EXPECT_EQ(err.seq, 1u);
    EXPECT_EQ(rov_err_getprev(&err), uint32_t{ROV_ERR_NO_VALUE});
    err.seq = 7;  // never had
    EXPECT_EQ(rov_err_getprev(&err), uint32_t{ROV_ERR_NO_VALUE});
  });
}

TEST(Failures, OneThreadIsSparedPagesForWords) {
  for (int round = 0; round < 2; round++) {  // what the first thread had is given back
    in_new_thread([] {
      g_refuse.store(true);
      rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 3);
      g_refuse.store(false);
      rov_err_t err = {};
      ASSERT_EQ(rov_err_getprev(&err), uint32_t{ROV_OK});
      EXPECT_EQ(err.seq, 1u);
      EXPECT_STREQ(err.message, "argument 3 is missing or out of its range");
    });
  }
}

TEST(Failures, WithoutMemoryTheStatusComesAllTheSame) {
  const SpareTaken taken;
  in_new_thread([] {
    g_refuse.store(true);
    const uint32_t numbered = rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 3);
    const std::string message = rov_err_message();
    const uint32_t worded = rov::fail_text(ROV_ERR_FULL, "the %s is full", "disk");
    rov_err_t err = {};
    const uint32_t looked = rov_err_getprev(&err);
    g_refuse.store(false);
    EXPECT_EQ(numbered, uint32_t{ROV_ERR_INVALID});
    EXPECT_EQ(message, no_words);
    EXPECT_EQ(worded, uint32_t{ROV_ERR_FULL});
    EXPECT_EQ(looked, uint32_t{ROV_ERR_NO_VALUE});
    rov::fail_text(ROV_ERR_FULL, "the %s is full", "disk");
    EXPECT_STREQ(rov_err_message(), "the disk is full") << "there is memory again";
  });
}

TEST(Failures, ALoggerHearsOfThoseThatAreNotRemembered) {
  static std::string heard;
  constexpr uint32_t database = 0x7001;
  const auto listen = [](uint32_t, const char* text, void*) { heard = text; };
  ASSERT_EQ(rov::logger_set(database, listen, nullptr), uint32_t{ROV_OK});
  ASSERT_EQ(rov::debug_set(database, 1), uint32_t{ROV_OK});
  const SpareTaken taken;
  in_new_thread([] {
    g_refuse.store(true);
    rov::fail(ROV_ERR_INVALID, rov::Note::kArgument, 3);
    g_refuse.store(false);
  });
  rov::logger_forget(database);
  EXPECT_NE(heard.find(no_words), std::string::npos) << heard;
}

}  // namespace
