// Which entries need a context: in per-thread mode they end the process in a thread without one,
// and those that only convert or print do not.

#include <csignal>
#include <ostream>
#include <thread>

#include "tests/library/query/support.h"

namespace {

using query_test::kSes;

qim_node_t a_node;
qim_pinst_t a_pinst;
qim_policy_dest_t a_dest;
qim_dsetname_t a_name;
rov_rqst_t a_rqst;
rov_rmtln_t a_rmtln;
std::uint8_t a_buffer[64];
void* a_pointer;
std::uint32_t a_word;
qim_node_id_t* an_array;

struct Entry {
  const char* name;
  void (*call)();
};
void PrintTo(const Entry& entry, std::ostream* os) {
  *os << entry.name;
}

// Puts the process in per-thread mode and calls the entry in a thread that has no context.
fake::Ending call_without_context(const Entry& entry) {
  return fake::ending_of([&entry] {
    fake::reset();
    std::thread([] { qim_lib_tls_init(0); }).join();
    entry.call();
  });
}

std::string name_of_entry(const testing::TestParamInfo<Entry>& tested) {
  return tested.param.name;
}

class EntryWithContext : public testing::TestWithParam<Entry> {};

TEST_P(EntryWithContext, aborts_without_one) {
  EXPECT_EQ(call_without_context(GetParam()).signal, SIGABRT);
}

INSTANTIATE_TEST_SUITE_P(
    Entries, EntryWithContext,
    testing::Values(
        Entry{"qim_ref_get", [] { qim_ref_get(kSes, 0, 0, &a_word); }},
        Entry{"qim_node_ref_get", [] { qim_node_ref_get(kSes, 0, 0, &a_word); }},
        Entry{"qim_ref_get_all", [] { qim_ref_get_all(kSes, &a_node, &an_array, &a_word); }},
        Entry{"qim_node_priv_set", [] { qim_node_priv_set(kSes, 0, nullptr, 0); }},
        Entry{"qim_node_priv_get", [] { qim_node_priv_get(kSes, 0, 0, nullptr); }},
        Entry{"qim_node_priv_ptr_set", [] { qim_node_priv_ptr_set(kSes, 0, nullptr); }},
        Entry{"qim_node_priv_ptr_get", [] { qim_node_priv_ptr_get(kSes, 0, &a_pointer); }},
        Entry{"qim_pinst_edest_lookup",
              [] { qim_pinst_edest_lookup(kSes, &a_node, &a_dest, nullptr); }},
        Entry{"qim_pinst_edest_name_get",
              [] { qim_pinst_edest_name_get(kSes, 0, &a_dest, nullptr); }},
        Entry{"qim_pinst_edest_get_int",
              [] { qim_pinst_edest_get_int(kSes, 0, 0, nullptr, &a_word); }},
        Entry{"qim_pinst_edest_get", [] { qim_pinst_edest_get(kSes, 0, 0, nullptr); }},
        Entry{"qim_ses_pinst_get", [] { qim_ses_pinst_get(kSes, 0, &a_node); }},
        Entry{"qim_ses_pinst_name_get", [] { qim_ses_pinst_name_get(kSes, &a_pinst, &a_node); }},
        Entry{"qim_node_pinst_get", [] { qim_node_pinst_get(kSes, 0, 0, &a_node); }},
        Entry{"qim_action_arg_get", [] { qim_action_arg_get(kSes, 0, 64, a_buffer); }},
        Entry{"qim_def_arg_get", [] { qim_def_arg_get(kSes, 0, 64, a_buffer); }},
        Entry{"qim_filter_criteria_get", [] { qim_filter_criteria_get(kSes, 0, 64, a_buffer); }},
        Entry{"qim_node_readall", [] { qim_node_readall(kSes, 0, 0, &a_node, 64, a_buffer); }}),
    name_of_entry);

class EntryWithoutContext : public testing::TestWithParam<Entry> {};

TEST_P(EntryWithoutContext, runs_without_one) {
  EXPECT_TRUE(call_without_context(GetParam()).returned);
}

INSTANTIATE_TEST_SUITE_P(
    Entries, EntryWithoutContext,
    testing::Values(Entry{"qim_rqst_to_rov", [] { qim_rqst_to_rov(&a_rqst); }},
                    Entry{"qim_rqst_from_rov", [] { qim_rqst_from_rov(&a_rqst); }},
                    Entry{"qim_rmtln_to_rov", [] { qim_rmtln_to_rov(&a_rmtln); }},
                    Entry{"qim_rmtln_from_rov", [] { qim_rmtln_from_rov(&a_rmtln); }},
                    Entry{"qim_dbg_dsetname_print",
                          [] { qim_dbg_dsetname_print(&a_name, &a_name, 0, 0, "", ""); }},
                    Entry{
                        "qim_dbg_dsetname_tlv_show",
                        [] { qim_dbg_dsetname.aux.print(0, 0, 0, 21, &a_name, "", 0, nullptr); }}),
    name_of_entry);

}  // namespace
