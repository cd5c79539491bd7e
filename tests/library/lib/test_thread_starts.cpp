// Starts and ends of threads that have contexts of their own.

#include <functional>
#include <thread>

#include "init_call.h"
#include "rov.h"

namespace {

using fake::System;
using lib_tests::init;
using lib_tests::last_db;

void in_thread(const std::function<void()>& body) {
  std::thread(body).join();
}

CHILD_TEST(LibThreadStarts, carry_the_uses_so_that_two_threads_close_one_handle_twice) {
  ASSERT_EQ(init(), 0u);
  for (int thread = 0; thread < 2; ++thread) {
    in_thread([] {
      ASSERT_EQ(qim_lib_tls_init(0), 0u);
      EXPECT_EQ(qim_lib_get()->use_count, 1);
      EXPECT_EQ(qim_lib_close(last_db, 0), 0u);
      EXPECT_EQ(qim_lib_get()->init_id, 0u);
    });
  }
  EXPECT_EQ(fake::count("rov_db_close"), 2u);
  EXPECT_EQ(fake::calls_of("rov_db_close")[0], fake::calls_of("rov_db_close")[1]);
}

CHILD_TEST(LibThreadStarts, in_one_thread_are_not_seen_by_another) {
  in_thread([] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    ASSERT_EQ(init(), 0u);
  });
  in_thread([] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    EXPECT_EQ(qim_lib_get()->use_count, 0);
    EXPECT_EQ(qim_lib_close(last_db, 0), 0x4116000eu);
  });
}

CHILD_TEST(LibThreadStarts, are_forgotten_by_a_second_set_up_and_their_database_stays_open) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  ASSERT_EQ(init(), 0u);
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  EXPECT_EQ(qim_lib_get()->init_id, 0u);
  EXPECT_EQ(qim_lib_close(last_db, 0), 0x4116000eu);
  EXPECT_EQ(fake::count("rov_db_close"), 0u);
  EXPECT_EQ(rov_db_close(last_db, 0), 0u) << "that is how it is freed";
}

CHILD_TEST(LibThreadStarts, fail_in_every_thread_for_good_once_the_key_could_not_be_created) {
  fake::fail_system(System::pthread_key_create);
  EXPECT_EQ(qim_lib_tls_init(0), 0x41160004u);
  in_thread([] {
    EXPECT_EQ(qim_lib_tls_init(0), 0x41160004u);
    EXPECT_EQ(init(), 0u) << "the process's context goes on serving";
  });
  EXPECT_EQ(qim_lib_get()->use_count, 1);
}

}  // namespace
