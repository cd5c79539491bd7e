// What a reader is told beside the file.
#pragma once

#include <string>

namespace qimctl {

struct ReadOptions {
  // The interface that a device is behind: device profiles name none. "" = their access lists are
  // attached nowhere.
  std::string interface;
};

}  // namespace qimctl
