// Names of the copies that are kept of a database as its snapshots.
//
// A copy is known by a path: a name, or a URI, a '/' and a name. In the file system it is one
// directory, named by the path with every byte but letters, digits, '-', '_' and '.' written as '%'
// and two hexadecimal digits, and a '.' at the beginning too: what begins with a '.' is no copy.
#ifndef DATABASE_STORE_COPY_NAME_H
#define DATABASE_STORE_COPY_NAME_H

#include <cstdint>

namespace rov {

constexpr uint32_t kCopyNameRoom = 256;  // of the file name and of the path, with the ending 0

struct CopyName {
  char file[kCopyNameRoom];
};

// The file name of that path; `uri` or `name` may be NULL, not both. ROV_ERR_INVALID and
// ROV_ERR_LENGTH, noted.
uint32_t copy_name(const char* uri, const char* name, CopyName* out);

// The path that has that file name. False when none has.
bool copy_path(const char* file, char (&path)[kCopyNameRoom]);

// Whether the copy of that file name has the path of `name`, or one that begins with it and a '/'.
bool copy_is_below(const char* file, const CopyName& name);

}  // namespace rov

#endif
