// The library context: what it looks like, and which one a thread gets.

#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include "tests/support/fake/fixture.h"
#include "tests/support/fake/layout.h"

namespace {

using fake::System;

void in_thread(const std::function<void()>& body) {
  std::thread(body).join();
}

bool is_zero(const qim_lib_ctx_t& ctx) {
  const qim_lib_ctx_t zero{};
  return std::memcmp(&ctx, &zero, sizeof ctx) == 0;
}

// Fills every byte, so that a copy that leaves one out shows.
void number_bytes(qim_lib_ctx_t* ctx) {
  auto* const bytes = reinterpret_cast<unsigned char*>(ctx);
  for (std::size_t i = 0; i < sizeof *ctx; ++i) bytes[i] = static_cast<unsigned char>(i + 1);
}

TEST(LibContext, is_34_words_with_the_parameters_in_words_3_to_27) {
  CHECK_LAYOUT(qim_lib_ctx_t, 136,
               {FIXED(qim_lib_ctx_t, rov_lib, 0, 4), FIXED(qim_lib_ctx_t, init_id, 4, 4),
                FIXED(qim_lib_ctx_t, init_arg, 8, 4), WIDENS(qim_lib_ctx_t, db_parms, 12, 100),
                FIXED(qim_lib_ctx_t, reserved0, 112, 12), FIXED(qim_lib_ctx_t, init_flags, 124, 4),
                FIXED(qim_lib_ctx_t, reserved1, 128, 4), FIXED(qim_lib_ctx_t, use_count, 132, 4)});
}

TEST(LibContext, holds_the_database_parameters_at_their_places) {
  CHECK_LAYOUT(rov_db_parms_t, 100,
               {FIXED(rov_db_parms_t, reserved0, 0, 4), WIDENS(rov_db_parms_t, mem, 4, 12),
                FIXED(rov_db_parms_t, vdc, 16, 4), FIXED(rov_db_parms_t, vdc_dflt, 20, 4),
                WIDENS(rov_db_parms_t, logger, 24, 4), WIDENS(rov_db_parms_t, logger_arg, 28, 4),
                FIXED(rov_db_parms_t, dbg_flags, 32, 4), FIXED(rov_db_parms_t, reserved1, 36, 12),
                FIXED(rov_db_parms_t, init_id, 48, 4), WIDENS(rov_db_parms_t, db_path, 52, 4),
                FIXED(rov_db_parms_t, db_group, 56, 4), FIXED(rov_db_parms_t, reserved2, 60, 40)});
}

TEST(LibContext, keeps_the_pool_in_word_4_and_the_logger_in_word_9_of_the_device_record) {
  if (sizeof(void*) == 4) {
    EXPECT_EQ(offsetof(qim_lib_ctx_t, db_parms.mem), 16u);
    EXPECT_EQ(offsetof(qim_lib_ctx_t, db_parms.vdc), 7u * 4);
    EXPECT_EQ(offsetof(qim_lib_ctx_t, db_parms.vdc_dflt), 8u * 4);
    EXPECT_EQ(offsetof(qim_lib_ctx_t, db_parms.logger), 9u * 4);
    EXPECT_EQ(offsetof(qim_lib_ctx_t, db_parms.logger_arg), 10u * 4);
    EXPECT_EQ(offsetof(qim_lib_ctx_t, db_parms.dbg_flags), 11u * 4);
    EXPECT_EQ(offsetof(qim_lib_ctx_t, db_parms.init_id), 15u * 4);
    EXPECT_EQ(offsetof(rov_parms_t, p.init_id), 14u * 4);
  }
  EXPECT_EQ(offsetof(rov_parms_t, p), 8u);
}

CHILD_TEST(LibContext, is_zero_at_load) {
  EXPECT_TRUE(is_zero(*qim_lib_get()));
}

CHILD_TEST(LibContext, comes_with_an_empty_report_buffer_and_a_zero_client_word) {
  EXPECT_EQ(qim_dbg, 0u);
  EXPECT_EQ(qim_dbgmsg[0], '\0');
}

CHILD_TEST(LibContext, is_shared_by_all_threads_without_per_thread_mode) {
  qim_lib_ctx_t* const mine = qim_lib_get();
  ASSERT_NE(mine, nullptr);
  in_thread([mine] { EXPECT_EQ(qim_lib_get(), mine); });
}

CHILD_TEST(LibThreads, get_a_copy_of_the_process_context_as_it_stands) {
  qim_lib_ctx_t* const process = qim_lib_get();
  number_bytes(process);
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  EXPECT_NE(qim_lib_get(), process);
  EXPECT_EQ(std::memcmp(qim_lib_get(), process, sizeof *process), 0);
  process->init_arg = 0x77;
  EXPECT_NE(qim_lib_get()->init_arg, 0x77u);
  in_thread([process] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    EXPECT_EQ(std::memcmp(qim_lib_get(), process, sizeof *process), 0);
  });
}

CHILD_TEST(LibThreads, keep_changes_to_themselves_and_copy_from_the_process_context_only) {
  qim_lib_ctx_t* const process = qim_lib_get();
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  qim_lib_ctx_t* const mine = qim_lib_get();
  mine->db_parms.dbg_flags = 9;
  in_thread([process, mine] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    EXPECT_NE(qim_lib_get(), mine);
    EXPECT_NE(qim_lib_get(), process);
    EXPECT_EQ(qim_lib_get()->db_parms.dbg_flags, 0u);
  });
  EXPECT_EQ(qim_lib_get(), mine);
  EXPECT_EQ(mine->db_parms.dbg_flags, 9u);
}

CHILD_TEST(LibThreads, take_136_bytes_from_malloc) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  EXPECT_EQ(fake::system_calls(System::malloc), 1u);
  EXPECT_EQ(fake::last_system_size(), sizeof(qim_lib_ctx_t));
}

CHILD_TEST(LibThreads, ignore_the_argument_and_have_a_second_entry_point) {
  ASSERT_EQ(qim_lib_tls_init(0xffffffff), 0u);
  qim_lib_ctx_t* const first = qim_lib_get();
  ASSERT_EQ(qim_lib_tls_init_int(), 0u);
  EXPECT_NE(qim_lib_get(), first);
}

CHILD_TEST(LibThreads, start_afresh_at_a_second_call_and_leave_the_first_copy_allocated) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  qim_lib_get()->init_arg = 5;
  qim_lib_ctx_t* const first = qim_lib_get();
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  EXPECT_NE(qim_lib_get(), first);
  EXPECT_EQ(qim_lib_get()->init_arg, 0u);
  EXPECT_EQ(first->init_arg, 5u);
  EXPECT_EQ(fake::system_blocks(), 2u);
}

CHILD_TEST(LibThreads, create_the_key_once_without_a_destructor) {
  qim_lib_ctx_t* kept = nullptr;
  in_thread([&kept] {
    ASSERT_EQ(qim_lib_tls_init(0), 0u);
    kept = qim_lib_get();
  });
  in_thread([] { ASSERT_EQ(qim_lib_tls_init(0), 0u); });
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  EXPECT_EQ(fake::system_calls(System::pthread_key_create), 1u);
  EXPECT_EQ(fake::system_blocks(), 3u) << "a thread's context outlives it";
  EXPECT_TRUE(is_zero(*kept));
}

CHILD_TEST(LibThreads, fail_when_pthread_once_fails) {
  qim_lib_ctx_t* const process = qim_lib_get();
  fake::fail_system(System::pthread_once);
  EXPECT_EQ(qim_lib_tls_init(0), 0x41160004u);
  EXPECT_EQ(fake::system_calls(System::malloc), 0u);
  EXPECT_EQ(qim_lib_get(), process);
  EXPECT_EQ(qim_lib_tls_init(0), 0u) << "the key was not tried yet";
}

CHILD_TEST(LibThreads, fail_when_pthread_once_fails_even_in_per_thread_mode) {
  ASSERT_EQ(qim_lib_tls_init(0), 0u);
  qim_lib_ctx_t* const mine = qim_lib_get();
  fake::fail_system(System::pthread_once);
  EXPECT_EQ(qim_lib_tls_init(0), 0x41160004u);
  EXPECT_EQ(qim_lib_get(), mine);
}

CHILD_TEST(LibThreads, fail_for_ever_when_the_key_cannot_be_created) {
  qim_lib_ctx_t* const process = qim_lib_get();
  fake::fail_system(System::pthread_key_create);
  EXPECT_EQ(qim_lib_tls_init(0), 0x41160004u);
  EXPECT_EQ(qim_lib_tls_init(0), 0x41160004u);
  EXPECT_EQ(fake::system_calls(System::pthread_key_create), 1u) << "it is not retried";
  EXPECT_EQ(fake::system_calls(System::malloc), 0u);
  EXPECT_EQ(qim_lib_get(), process);
}

CHILD_TEST(LibThreads, fail_without_memory) {
  fake::fail_system(System::malloc);
  EXPECT_EQ(qim_lib_tls_init(0), 0x41160010u);
  EXPECT_EQ(fake::system_calls(System::pthread_setspecific), 0u);
}

TEST(LibThreads, are_in_per_thread_mode_even_if_the_first_call_then_failed) {
  const fake::Ending ending = fake::ending_of([] {
    fake::reset_system();
    fake::fail_system(System::malloc);
    qim_lib_tls_init(0);
    qim_lib_get();
  });
  EXPECT_EQ(ending.signal, SIGABRT);
}

CHILD_TEST(LibThreads, fail_when_the_context_cannot_be_attached_and_leave_the_block_allocated) {
  fake::fail_system(System::pthread_setspecific);
  EXPECT_EQ(qim_lib_tls_init(0), 0x41160004u);
  EXPECT_EQ(fake::system_blocks(), 1u);
  EXPECT_EQ(qim_lib_tls_init(0), 0u);
  EXPECT_EQ(fake::system_blocks(), 2u);
}

CHILD_TEST(LibThreads, are_set_up_without_reports_or_platform_calls) {
  fake::report_everything(qim_lib_get());
  qim_lib_get()->db_parms.dbg_flags |= QIM_DBG_STRICT;
  fake::fail_system(System::pthread_once);
  qim_lib_tls_init(0);
  fake::fail_system(System::malloc);
  qim_lib_tls_init(0);
  fake::fail_system(System::pthread_setspecific);
  qim_lib_tls_init(0);
  qim_lib_tls_init(0);
  EXPECT_EQ(fake::reports().size(), 0u);
  EXPECT_EQ(fake::calls(), fake::Calls{});
}

// ---- Threads without a context ----------------------------------------------------------------

qim_node_t a_node;
qim_link_t a_link;
qim_node_cache_entry_t* an_entry;

struct Entry {
  const char* name;
  void (*call)();
};
void PrintTo(const Entry& entry, std::ostream* os) {
  *os << entry.name;
}

void get() {
  qim_lib_get();
}
void defaults() {
  qim_lib_defaults(1, 1);
}
void init() {
  std::uint32_t db = 0;
  qim_lib_init(1, 1, 1, 1, nullptr, 1, 1, 0, &db);
}
void close() {
  qim_lib_close(1, 1);
}
void locks() {
  qim_lib_init_locks(1, 1, 1, 1, 1);
}
void dest_set() {
  qim_policy_dest_t dest;
  qim_if_policy_dest_set(1, 1, 1, 1, &dest);
}
void name_for_if() {
  qim_dsetname_t name;
  qim_dsetname_for_if_policy(1, 1, 1, 1, 1, 1, &name);
}
void alloc() {
  void* out = nullptr;
  std::uint32_t size = 0;
  qim_tlv_struct_alloc(4, &out, &size);
}
void link_field_get() {
  qim_link_field_get(1, 1, 0x81, &a_link);
}
void link_get() {
  qim_link_get(1, 1, 0x81, &a_link);
}
void link_opt_get() {
  qim_link_opt_get(1, 1, 0x81, &a_link);
}
void link_val() {
  a_node.type = QIM_NODE_FILTER;
  qim_link_val(1, &a_node, 0x81, &a_link);
}
void cache_get() {
  qim_node_cache_get(1, 1, &an_entry);
}
void cache_unlink() {
  qim_node_cache_unlink(1, 1, &an_entry);
}
void node_cp() {
  qim_node_t copy;
  qim_node_cp(1, &a_node, &copy);
}
void node_read() {
  qim_node_read(1, 1, 0, &a_node);
}
void node_read_int() {
  qim_node_read_int(1, 1, nullptr, 0, &a_node);
}
void node_read_no_nedest() {
  qim_node_read_no_nedest(1, 1, 0, &a_node);
}

// Puts the process in per-thread mode and calls the entry in a thread that has no context.
fake::Ending call_without_context(const Entry& entry) {
  return fake::ending_of([&entry] {
    fake::reset();
    in_thread([] { qim_lib_tls_init(0); });
    entry.call();
  });
}

class LibThreadsWithoutContext : public testing::TestWithParam<Entry> {};

TEST_P(LibThreadsWithoutContext, abort) {
  EXPECT_EQ(call_without_context(GetParam()).signal, SIGABRT);
}

INSTANTIATE_TEST_SUITE_P(
    Entries, LibThreadsWithoutContext,
    testing::Values(Entry{"qim_lib_get", get}, Entry{"qim_lib_defaults", defaults},
                    Entry{"qim_lib_init", init}, Entry{"qim_lib_close", close},
                    Entry{"qim_lib_init_locks", locks}, Entry{"qim_if_policy_dest_set", dest_set},
                    Entry{"qim_dsetname_for_if_policy", name_for_if},
                    Entry{"qim_tlv_struct_alloc", alloc},
                    Entry{"qim_link_field_get", link_field_get}, Entry{"qim_link_get", link_get},
                    Entry{"qim_link_opt_get", link_opt_get}, Entry{"qim_link_val", link_val},
                    Entry{"qim_node_cache_get", cache_get},
                    Entry{"qim_node_cache_unlink", cache_unlink}, Entry{"qim_node_cp", node_cp},
                    Entry{"qim_node_read", node_read}, Entry{"qim_node_read_int", node_read_int},
                    Entry{"qim_node_read_no_nedest", node_read_no_nedest}),
    [](const auto& tested) { return std::string(tested.param.name); });

void parms_init() {
  rov_parms_t parms;
  qim_db_init_parms_init(&parms, 1);
}
void ps_sizes() {
  qim_db_set_ps_sizes(1, 1, 1);
}
void errors() {
  qim_dbg_errors(QIM_ERR_INVALID, "f", 1, nullptr);
}
void id_convert() {
  rov_node_id_t id;
  qim_to_rov_node_id(1, &id);
}
void dest_cmp() {
  const qim_policy_dest_t dest{};
  qim_policy_dest_cmp(&dest, &dest);
}
void link_ptr() {
  qim_link_ptr(&a_node, 0x81, nullptr, nullptr);
}
void predicate() {
  qim_is_ifelse_filter_type(&a_node);
}
void codec() {
  qim_group_get_struct_sz(&a_node);
}

class LibThreadsForwarding : public testing::TestWithParam<Entry> {};

TEST_P(LibThreadsForwarding, need_no_context) {
  EXPECT_TRUE(call_without_context(GetParam()).returned);
}

INSTANTIATE_TEST_SUITE_P(
    Entries, LibThreadsForwarding,
    testing::Values(Entry{"qim_db_init_parms_init", parms_init},
                    Entry{"qim_db_set_ps_sizes", ps_sizes}, Entry{"qim_dbg_errors", errors},
                    Entry{"qim_to_rov_node_id", id_convert}, Entry{"qim_policy_dest_cmp", dest_cmp},
                    Entry{"qim_link_ptr", link_ptr}, Entry{"qim_is_ifelse_filter_type", predicate},
                    Entry{"qim_group_get_struct_sz", codec}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST(LibThreadsWithoutContext, abort_in_the_first_thread_too_and_in_any_other) {
  const fake::Ending first = fake::ending_of([] {
    in_thread([] { qim_lib_tls_init(0); });
    qim_lib_get();
  });
  EXPECT_EQ(first.signal, SIGABRT);
  const fake::Ending other = fake::ending_of([] {
    qim_lib_tls_init(0);
    in_thread([] { qim_lib_get(); });
  });
  EXPECT_EQ(other.signal, SIGABRT);
}

}  // namespace
