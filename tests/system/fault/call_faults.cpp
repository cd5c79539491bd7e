#include "tests/system/fault/call_faults.h"

#include <cerrno>
#include <cstring>

namespace fault {

const std::vector<CallFault>& call_faults() {
  using namespace interpose;
  static const std::vector<CallFault> all = {
      {kOpen, EACCES, true},     {kOpen, EMFILE, true},     {kOpen, EIO, false},
      {kOpen, EINTR, false},     {kOpen, ENOSPC, false},    {kRead, EIO, true},
      {kRead, EINTR, false},     {kPread, EIO, true},       {kPread, EINTR, false},
      {kWrite, EIO, true},       {kWrite, ENOSPC, true},    {kWrite, EINTR, false},
      {kWrite, kShort, false},   {kPwrite, EIO, true},      {kPwrite, ENOSPC, true},
      {kPwrite, EINTR, false},   {kPwrite, kShort, true},   {kSync, EIO, true},
      {kSync, ENOSPC, false},    {kSync, EINTR, false},     {kTruncate, EIO, true},
      {kTruncate, ENOSPC, true}, {kTruncate, EINTR, false}, {kMap, ENOMEM, true},
      {kMap, EACCES, false},     {kRename, EACCES, true},   {kRename, EIO, false},
      {kRename, ENOSPC, false},  {kControl, EIO, true},     {kControl, EMFILE, false},
      {kControl, EINTR, false},
  };
  return all;
}

std::string text_of(const CallFault& fault) {
  return std::string(interpose::name_of(fault.call)) + " " +
         (fault.error == interpose::kShort ? "short" : strerrorname_np(fault.error));
}

bool names_cause(const std::string& message, const CallFault& fault) {
  // The engine keeps to itself how the lock of its lock file was refused.
  if (fault.call == interpose::kControl && message.find("refused a record lock") < message.size()) {
    return true;
  }
  return names_cause(message, fault.error);
}

bool names_cause(const std::string& message, int error) {
  // The engine tells of a short write as one for which there was no room, or as a failed one.
  if (error == interpose::kShort) {
    return names_cause(message, EIO) || names_cause(message, ENOSPC);
  }
  return message.find(strerror(error)) != std::string::npos;
}

}  // namespace fault
