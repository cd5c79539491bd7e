#include "tests/system/sweep/cases.h"

#include <gtest/gtest.h>

#include <iterator>

#include "qim.h"
#include "tests/support/fake/faults.h"
#include "tlvo.h"

namespace sweep_test {
namespace {

using fake::System;

void expect_clean(const fake::Sweep& sweep) {
  fake::clear_calls();
  EXPECT_EQ(sweep.run(), 0u) << "without a failure";
  sweep.check(0, {});
  EXPECT_EQ(fake::live_blocks(), 0u);
  EXPECT_EQ(fake::system_blocks(), 0u);
}

// Returns whether there was an nth call of that function.
bool attempt(const fake::Sweep& sweep, System function, unsigned nth) {
  fake::reset();
  fake::reset_system();
  sweep.prepare();
  fake::fail_system(function, nth);
  const std::uint32_t returned = sweep.run();
  const bool hit = fake::system_calls(function) >= nth;
  EXPECT_EQ(returned, hit ? std::uint32_t{QIM_ERR_NO_MEM} : 0u) << "call " << nth;
  sweep.check(returned, {});
  EXPECT_EQ(fake::live_blocks(), 0u);
  EXPECT_EQ(fake::system_blocks(), 0u);
  fake::reset_system();
  expect_clean(sweep);
  return hit;
}

void sweep_system(const fake::Sweep& sweep) {
  for (const System function : {System::malloc, System::calloc}) {
    for (unsigned nth = 1; attempt(sweep, function, nth); ++nth) {
    }
  }
}

bool returns_a_size(const std::string& name) {
  return name == "tlvo_enc_struct_to_tlva_size" || name == "rov_tlv_listel_tlvsize" ||
         name == "rov_tlva_union_siz";
}

// How often each size is asked for in the calls made so far.
std::vector<std::pair<std::string, unsigned>> sizes_asked() {
  std::vector<std::pair<std::string, unsigned>> asked;
  for (const fake::Call& made : fake::calls()) {
    if (!returns_a_size(made.name)) continue;
    unsigned nth = 1;
    for (const auto& [name, earlier] : asked) nth += name == made.name ? 1 : 0;
    asked.emplace_back(made.name, nth);
  }
  return asked;
}

}  // namespace

Case failing(const std::string& function, const fake::Sweep& sweep) {
  return {function, [sweep] {
            fake::sweep(sweep, kFailure);
            sweep_system(sweep);
          }};
}

Case steady(const std::string& function, const std::function<void()>& call) {
  return {function, [call] {
            fake::clear_calls();
            fake::reset_system();
            call();
            EXPECT_EQ(fake::fallible_calls(), 0u) << "there is something to sweep";
            EXPECT_EQ(fake::system_calls(System::malloc), 0u);
            EXPECT_EQ(fake::system_calls(System::calloc), 0u);
          }};
}

Case sizing(const std::string& function, const std::function<std::uint32_t()>& size) {
  return {function, [size] {
            fake::clear_calls();
            const std::uint32_t clean = size();
            EXPECT_NE(clean, TLVO_SIZE_FAILED);
            const auto asked = sizes_asked();
            EXPECT_FALSE(asked.empty());
            EXPECT_EQ(fake::fallible_calls(), 0u) << "there is something to sweep";
            for (const auto& [name, nth] : asked) {
              fake::fail(name, TLVO_SIZE_FAILED, nth);
              EXPECT_EQ(size(), TLVO_SIZE_FAILED) << name << " " << nth;
              EXPECT_EQ(size(), clean) << "afterwards";
            }
          }};
}

Case both(const Case& one, const Case& other) {
  return {one.function, [one, other] {
            one.run();
            other.run();
          }};
}

Cases all_cases() {
  Cases all;
  for (const auto family : {plain_cases, pass_cases, codec_cases, start_cases, node_cases,
                            link_cases, query_cases, edest_cases}) {
    Cases cases = family();
    all.insert(all.end(), std::make_move_iterator(cases.begin()),
               std::make_move_iterator(cases.end()));
  }
  return all;
}

}  // namespace sweep_test
