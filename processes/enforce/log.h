// What qim-enforce has to say.
#pragma once

#include <string>

#include "processes/base/log.h"

namespace enforce {

using process::Level;

inline void say(Level level, const std::string& text) {
  process::say("qim-enforce", level, text);
}

}  // namespace enforce
