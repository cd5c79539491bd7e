// The service manager that started the process, if there is one (sd_notify(3)).
#pragma once

#include <chrono>
#include <string>

namespace process {

// Tells it states, a line each, such as "READY=1" and "STATUS=revision 3".
void notify(const std::string& states);
// How often it wants to hear "WATCHDOG=1", with room for being late; 0 = never.
std::chrono::milliseconds watchdog_time();

}  // namespace process
