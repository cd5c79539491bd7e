// Every function that the library exports, under the failure of each platform call that it makes:
// the status comes back, the outputs are as promised, nothing is left allocated but what the
// contract says, and the next call works.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <set>

#include "node/cache.h"
#include "tests/support/fake/fixture.h"
#include "tests/system/sweep/cases.h"

namespace {

using sweep_test::Case;

// What the library exports beside functions.
const std::set<std::string> kData = {
    "node_cache_head",   "node_cache_tail",   "qim_action_bw_tbl", "qim_action_tbl",
    "qim_criterion_tbl", "qim_dbg",           "qim_dbg_dsetname",  "qim_dbg_tlva_handler",
    "qim_dbgmsg",        "qim_def_tbl",       "qim_filter_tbl",    "qim_group_tbl",
    "qim_haction_tbl",   "qim_hfilter_tbl",   "qim_ifelse_tbl",    "qim_node_tbl",
    "qim_pinst_tbl",     "qim_pinstflds_gen", "qim_pinstflds_if",  "qim_pinstflds_srv",
    "qim_police_tbl",
};

std::vector<std::string> exported() {
  const char* const source = std::getenv("QIM_SOURCE_DIR");
  std::ifstream list(std::string(source != nullptr ? source : ".") +
                     "/packaging/qimcommon.exports");
  std::vector<std::string> names;
  for (std::string line; std::getline(list, line);) {
    if (!line.empty() && line[0] != '#') names.push_back(line);
  }
  return names;
}

std::vector<std::string> exported_functions() {
  std::vector<std::string> names = exported();
  std::erase_if(names, [](const std::string& name) { return kData.count(name) != 0; });
  return names;
}

const Case* case_of(const std::string& function) {
  static const sweep_test::Cases cases = sweep_test::all_cases();
  const auto found = std::find_if(cases.begin(), cases.end(),
                                  [&](const Case& one) { return one.function == function; });
  return found == cases.end() ? nullptr : &*found;
}

class EveryExportedFunction : public fake::Test, public testing::WithParamInterface<std::string> {
 protected:
  void SetUp() override {
    fake::Test::SetUp();
    fake::report_everything(ctx());
  }
  void TearDown() override {
    EXPECT_EQ(node_cache_head, nullptr) << "the case leaves nodes in the cache";
    EXPECT_EQ(node_cache_count, 0);
    node_cache_max = 0;
    fake::Test::TearDown();
  }
};

INSTANTIATE_TEST_SUITE_P(, EveryExportedFunction, testing::ValuesIn(exported_functions()),
                         [](const auto& tested) { return tested.param; });

TEST_P(EveryExportedFunction, withstands_the_failure_of_each_platform_call) {
  const Case* const found = case_of(GetParam());
  ASSERT_NE(found, nullptr) << "no case says what failures do to it; add one to tests/system/sweep";
  found->run();
}

TEST(ExportedNames, are_all_that_there_are_cases_for_and_have_one_each) {
  const std::vector<std::string> functions = exported_functions();
  const std::set<std::string> known(functions.begin(), functions.end());
  std::set<std::string> seen;
  for (const Case& one : sweep_test::all_cases()) {
    EXPECT_TRUE(known.count(one.function) != 0) << one.function << " is not exported";
    EXPECT_TRUE(seen.insert(one.function).second) << one.function << " has two cases";
  }
}

TEST(ExportedNames, hold_every_datum_that_is_no_function) {
  const std::vector<std::string> names = exported();
  const std::set<std::string> known(names.begin(), names.end());
  for (const std::string& name : kData) EXPECT_TRUE(known.count(name) != 0) << name;
}

}  // namespace
