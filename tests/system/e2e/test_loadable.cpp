// Both libraries are loaded while a program runs, as scripting languages and plug-ins load them, used by
// several threads, and let go of again.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <link.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "qim.h"
#include "rov_edit.h"

namespace {

// What the loader has left for libraries that come later is about 1.5 KB for all of them.
constexpr size_t most_static_memory = 256;

class Loaded {
 public:
  explicit Loaded(const char* name) {
    const char* build = getenv("QIM_BUILD_DIR");
    const std::string path = std::string(build != nullptr ? build : ".") + "/lib/" + name;
    library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library_ == nullptr) ADD_FAILURE() << dlerror();
  }
  ~Loaded() { EXPECT_TRUE(library_ == nullptr || dlclose(library_) == 0); }
  Loaded(const Loaded&) = delete;
  Loaded& operator=(const Loaded&) = delete;

  bool is_there() const { return library_ != nullptr; }
  template <typename Function>
  Function* get(const char* name) const {
    auto* found = reinterpret_cast<Function*>(dlsym(library_, name));
    EXPECT_NE(found, nullptr) << name;
    return found;
  }

 private:
  void* library_ = nullptr;
};

// The memory that each thread has of a library from its start on.
size_t thread_memory(const char* name) {
  struct Search {
    const char* name;
    size_t bytes;
  } search = {name, 0};
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* to) {
        auto* wanted = static_cast<Search*>(to);
        if (strstr(info->dlpi_name, wanted->name) == nullptr) return 0;
        for (int i = 0; i < info->dlpi_phnum; i++) {
          if (info->dlpi_phdr[i].p_type == PT_TLS) wanted->bytes = info->dlpi_phdr[i].p_memsz;
        }
        return 1;
      },
      &search);
  return search.bytes;
}

TEST(Loadable, TakesLittleOfTheMemoryThatThreadsStartWith) {
  const Loaded database("librovcommon.so.1");
  const Loaded library("libqimcommon.so.1");
  ASSERT_TRUE(database.is_there() && library.is_there());
  EXPECT_LT(thread_memory("librovcommon.so.1"), most_static_memory);
  EXPECT_LT(thread_memory("libqimcommon.so.1"), most_static_memory);
}

TEST(Loadable, IsUsedByThreadsAndLetGoOf) {
  char directory[] = "/tmp/rov-test-XXXXXX";
  ASSERT_NE(mkdtemp(directory), nullptr);
  const std::string path = std::string(directory) + "/db";
  std::vector<std::thread> threads;
  for (int round = 0; round < 3; round++) {
    const Loaded database("librovcommon.so.1");
    const Loaded library("libqimcommon.so.1");
    ASSERT_TRUE(database.is_there() && library.is_there());
    const auto parms_init = library.get<decltype(qim_db_init_parms_init)>("qim_db_init_parms_init");
    const auto open = library.get<decltype(qim_lib_init)>("qim_lib_init");
    const auto close = library.get<decltype(qim_lib_close)>("qim_lib_close");
    const auto session = library.get<decltype(qim_ses_open_ro)>("qim_ses_open_ro");
    const auto read = library.get<decltype(qim_node_read)>("qim_node_read");
    const auto message = database.get<decltype(rov_err_message)>("rov_err_message");
    rov_parms_t parms{};
    ASSERT_EQ(parms_init(&parms, 1), uint32_t{ROV_OK});
    parms.p.db_path = path.c_str();
    uint32_t db = 0;
    ASSERT_EQ(open(0, 0, 7, 0, &parms, 0, 0, 0, &db), uint32_t{ROV_OK}) << message();
    for (int i = 0; i < 3; i++) {
      threads.emplace_back([=] {
        uint32_t ses = 0;
        qim_node_t node;
        EXPECT_EQ(session(db, &ses), uint32_t{ROV_OK});
        EXPECT_EQ(read(ses, 1, 0, &node), uint32_t{ROV_ERR_NO_ITEM});
        EXPECT_NE(std::string(message()).find("node 0x00000001"), std::string::npos);
      });
    }
    for (std::thread& thread : threads) thread.join();
    threads.clear();
    EXPECT_EQ(close(db, 0), uint32_t{ROV_OK});
  }
  std::filesystem::remove_all(directory);
}

// The thread ends when nobody has the libraries loaded any more.
TEST(Loadable, AThreadOutlivesTheLoading) {
  std::thread thread;
  std::atomic<bool> used{false};
  std::atomic<bool> gone{false};
  {
    const Loaded database("librovcommon.so.1");
    ASSERT_TRUE(database.is_there());
    const auto next = database.get<decltype(rov_node_next)>("rov_node_next");
    thread = std::thread([&, next] {
      rov_node_parms_t parms;
      EXPECT_EQ(next(0, rov_node_id_t{}, &parms), uint32_t{ROV_ERR_HANDLE});
      used.store(true);
      while (!gone.load()) std::this_thread::yield();
    });
    while (!used.load()) std::this_thread::yield();
  }
  gone.store(true);
  thread.join();
}

}  // namespace
