// A call of qim_lib_init whose arguments a test names where they matter.
#ifndef TESTS_LIBRARY_LIB_INIT_CALL_H
#define TESTS_LIBRARY_LIB_INIT_CALL_H

#include "tests/support/fake/fixture.h"

namespace lib_tests {

struct Init {
  std::uint32_t id = 0x1d;
  std::uint32_t arg = 0xa4;
  rov_parms_t* parms = nullptr;
  std::uint32_t flags = 0;
  std::uint32_t rov_lib = 0;
};

inline constexpr std::uint32_t kA1 = 0xa1;
inline constexpr std::uint32_t kA2 = 0xa2;
inline constexpr std::uint32_t kA6 = 0xa6;

// The handle that the last call gave.
inline std::uint32_t last_db = 0;

inline std::uint32_t init(const Init& with = {}) {
  last_db = 0x5117;
  return qim_lib_init(kA1, kA2, with.id, with.arg, with.parms, kA6, with.flags, with.rov_lib,
                      &last_db);
}

// Lets the context report every status to fake::logger, now and after start-up.
inline void report_all() {
  fake::report_everything(qim_lib_get());
  fake::settings().parms.logger = fake::logger;
  fake::settings().parms.dbg_flags = QIM_DBG_REPORT | QIM_DBG_ALL;
}

inline std::vector<std::string> reports_of_init(std::uint32_t status, int line) {
  return {fake::report(status, "qim_lib_init", line)};
}

}  // namespace lib_tests

#endif
