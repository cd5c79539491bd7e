// What the system can answer to a call instead of doing it.
#ifndef TESTS_SYSTEM_FAULT_CALL_FAULTS_H
#define TESTS_SYSTEM_FAULT_CALL_FAULTS_H

#include <string>
#include <vector>

#include "tests/system/fault/interpose.h"

namespace fault {

struct CallFault {
  interpose::Call call;
  int error;
  bool lasting;  // tried also with all calls of the kind failing from one on
};

// EACCES for fcntl is no fault, but says that somebody else holds the lock.
const std::vector<CallFault>& call_faults();

// "pwrite EIO"
std::string text_of(const CallFault& fault);

// Does the message say what went wrong?
bool names_cause(const std::string& message, int error);
bool names_cause(const std::string& message, const CallFault& fault);

}  // namespace fault

#endif
