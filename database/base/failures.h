// The failures that a thread remembers, each with its words.
#pragma once

#include <cstdint>

#include "database/base/error.h"

namespace rov {

struct Failure {
  uint32_t status;
  Note note;
  uint32_t a;
  uint32_t b;
  char text[512];
};

// Makes room for another failure of the thread. NULL when there is no memory for it: then nothing is
// remembered but the status of the newest one.
Failure* next_failure(uint32_t status, Note note);

// The failure of that number, counted from 1 for each thread, 0 = the newest. Sets *number to its
// number. NULL when the thread has not had it, or has forgotten it.
Failure* find_failure(uint32_t* number);

// The status of the newest failure when there was no memory for it, else 0.
uint32_t unkept_failure();

}  // namespace rov
