// Checks a record's layout against the device's positions and widths. Builds with wider pointers
// may differ only by them: a member that is or holds a pointer is wider there, what follows moves
// to its next aligned place, and nothing else changes.
#ifndef TESTS_SUPPORT_FAKE_LAYOUT_H
#define TESTS_SUPPORT_FAKE_LAYOUT_H

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace fake {

struct Member {
  const char* name;
  std::size_t device_at;     // byte position on the device
  std::size_t device_width;  // bytes there
  bool widens;               // is or holds a pointer
  std::size_t at;
  std::size_t width;
  std::size_t align;
};

inline void check_layout(const char* record, std::size_t device_size, std::size_t size,
                         std::size_t align, const std::vector<Member>& members) {
  SCOPED_TRACE(record);
  const bool device = sizeof(void*) == 4;
  std::size_t device_end = 0;
  std::size_t end = 0;
  for (const Member& m : members) {
    SCOPED_TRACE(m.name);
    EXPECT_EQ(m.device_at, device_end) << "the device has no hidden gaps";
    EXPECT_EQ(m.at, (end + m.align - 1) / m.align * m.align);
    if (device) {
      EXPECT_EQ(m.at, m.device_at);
    }
    if (device || !m.widens) {
      EXPECT_EQ(m.width, m.device_width);
    } else {
      EXPECT_GT(m.width, m.device_width);
    }
    device_end = m.device_at + m.device_width;
    end = m.at + m.width;
  }
  EXPECT_EQ(device_end, device_size);
  EXPECT_EQ(size, (end + align - 1) / align * align);
  if (device) {
    EXPECT_EQ(size, device_size);
  }
}

}  // namespace fake

#define LAYOUT_MEMBER(record, member, at, bytes, widens)                          \
  fake::Member {                                                                  \
#member, at, bytes, widens, offsetof(record, member), sizeof(record::member), \
        alignof(decltype(record::member))                                         \
  }
// A member of fixed width, one that holds a pointer, and one of a packed record.
#define FIXED(record, member, at, bytes) LAYOUT_MEMBER(record, member, at, bytes, false)
#define WIDENS(record, member, at, bytes) LAYOUT_MEMBER(record, member, at, bytes, true)
#define PACKED(record, member, at, bytes)                                          \
  fake::Member {                                                                   \
#member, at, bytes, false, offsetof(record, member), sizeof(record::member), 1 \
  }
#define CHECK_LAYOUT(record, bytes, ...) \
  fake::check_layout(#record, bytes, sizeof(record), alignof(record), __VA_ARGS__)

#endif
