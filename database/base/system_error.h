// Errors of the operating system as statuses of the database.
#ifndef DATABASE_BASE_SYSTEM_ERROR_H
#define DATABASE_BASE_SYSTEM_ERROR_H

#include <cstdint>

namespace rov {

// Notes an error and returns the status that stands for it; 0 is ROV_OK. `path`: of the database.
// `doing` completes the sentence "cannot ...".
uint32_t system_fail(int error, const char* path, const char* doing);
// Same, of an error with a text of its own.
uint32_t system_fail(int error, const char* text, const char* path, const char* doing);

}  // namespace rov

#endif
