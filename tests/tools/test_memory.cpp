// What commands that go through all entries keep in memory does not grow with what they print.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <new>

#include "policy/store/database.h"
#include "tests/policy/lists_support.h"
#include "tests/tools/support.h"
#include "tools/base/output.h"
#include "tools/commands/acl.h"
#include "tools/commands/dump.h"

namespace {

size_t g_live = 0;
size_t g_peak = 0;

}  // namespace

// Every object of C++ is counted; what the database maps is the system's to take back, and is not.
void* operator new(size_t size) {
  void* block = malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  g_live += malloc_usable_size(block);
  g_peak = std::max(g_peak, g_live);
  return block;
}

// Its blocks are given back as all others are, so it must not be that of a sanitizer.
void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void operator delete(void* block) noexcept {
  if (block != nullptr) g_live -= malloc_usable_size(block);
  free(block);
}

// Not every compiler knows this one as what replaces the standard library's, and exports it by itself.
[[gnu::visibility("default")]] void operator delete(void* block, size_t) noexcept {
  operator delete(block);
}

namespace {

// Takes the standard output away while it lives.
class NoOutput {
 public:
  NoOutput() : kept_(dup(STDOUT_FILENO)) {
    qimctl::flush_output();
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
  }
  ~NoOutput() {
    qimctl::flush_output();
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
  }
  NoOutput(const NoOutput&) = delete;
  NoOutput& operator=(const NoOutput&) = delete;

 private:
  int kept_;
};

constexpr uint32_t few = 1000;
constexpr uint32_t many = 4 * few;

class Memory : public testing::Test {
 protected:
  using Command = std::function<void(const qimctl::Database&, const qimctl::ReadSession&)>;

  // Bytes that a command takes at most for each entry that there is more.
  double growth(const Command& command) {
    return (static_cast<double>(peak_of(many, command)) -
            static_cast<double>(peak_of(few, command))) /
           (many - few);
  }

 private:
  size_t peak_of(uint32_t entries, const Command& command) {
    const tools_test::TempDir dir;
    const qimctl::Database database(dir / "db", qimctl::OpenMode::create);
    store(database, entries);
    const qimctl::ReadSession session(database);
    const NoOutput quiet;
    const size_t before = g_live;
    g_peak = g_live;
    command(database, session);
    return g_peak - before;
  }

  static void store(const qimctl::Database& database, uint32_t entries) {
    std::vector<std::string> texts;
    for (uint32_t i = 0; i < entries; i++)
      texts.push_back("entry-" + std::to_string(i) + " port=" + std::to_string(i) +
                      (i % 3 == 0 ? " drop" : ""));
    lists_test::store(database, qimctl::make_nodes(lists_test::model(
                                    {lists_test::list("large", texts)}, {"large eth0/in"})));
  }
};

TEST_F(Memory, of_a_dump_does_not_grow) {
  EXPECT_LT(growth([](const auto& database, const auto&) { qimctl::dump_database(database); }), 8);
}

// A few bytes tell entries of one name.
TEST_F(Memory, of_the_table_of_lists_hardly_grows) {
  EXPECT_LT(growth([](const auto&, const auto& session) {
              qimctl::print_lists(session, qimctl::OutputForm::table);
            }),
            64);
}

// Lines are kept until the columns' widths are known, up to a limit.
TEST_F(Memory, of_the_table_of_entries_is_that_of_its_text) {
  EXPECT_LT(growth([](const auto&, const auto& session) {
              qimctl::print_list(session, "large", qimctl::OutputForm::table);
            }),
            256);
}

}  // namespace
