// Runs one command, and says what went wrong with it.
#include "tools/cli.h"

#include <new>

#include "policy/base/names.h"
#include "policy/base/policy.h"
#include "policy/store/database.h"
#include "rov.h"
#include "tools/base/exit_code.h"
#include "tools/base/output.h"
#include "tools/base/progress.h"
#include "tools/base/usage.h"
#include "tools/options/command_line.h"

namespace qimctl {

namespace {

// More would only push the first ones off the screen.
constexpr size_t most_problems = 50;

void complain_of(const InputError& error) {
  const std::vector<Problem>& problems = error.problems();
  for (size_t i = 0; i < problems.size() && i < most_problems; i++) {
    complain(problems[i]);
  }
  if (problems.size() > most_problems) {
    complain("and " + counted(problems.size() - most_problems, "more problem"));
  }
}

// What was asked for is not there.
bool is_absent(uint32_t status) {
  return status == ROV_ERR_NO_ITEM || status == QIM_ERR_NO_EDEST;
}

}  // namespace

int run(int argc, const char* const* argv) {
  try {
    const int code = read_command_line(argc, argv)();
    flush_output();
    return code;
  } catch (const UsageError& error) {
    complain(error.what());
    return exit_usage;
  } catch (const Interrupted&) {
    complain(interrupted_text);
    return exit_interrupted;
  } catch (const InputError& error) {
    complain_of(error);
    return exit_input;
  } catch (const DatabaseError& error) {
    complain(error.what(), status_name(error.status()) + ", " + hex_number(error.status(), 8));
    return is_absent(error.status()) ? exit_not_found : exit_database;
  } catch (const OutputError& error) {
    complain(error.what());
    return exit_output;
  } catch (const std::bad_alloc&) {
    complain("out of memory; free some and try again");
    return exit_database;
  } catch (const std::exception& error) {
    complain(std::string("internal error: ") + error.what());
    return exit_database;
  }
}

}  // namespace qimctl
