// Data-set names as bytes in network order, and texts cut to what a printer's buffer holds.
#ifndef TESTS_LIBRARY_DBG_NAMES_H
#define TESTS_LIBRARY_DBG_NAMES_H

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "tests/support/fake/fixture.h"

namespace dbg_test {

using fake::Bytes;

// An interface name: ifix 0x11223344, VRF 0x01020304, VLAN 0x0a0b, VDC 0x0102, type 5, input.
inline const Bytes kInterface = {0x01, 0x11, 0x22, 0x33, 0x44, 0x01, 0x02, 0x03, 0x04, 0x0a, 0x0b,
                                 0x01, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01};
// Another: ifix 0x0b, VRF 0x0c, VLAN 0x0d, VDC 0x0e, type 0x12345678, output.
inline const Bytes kOtherInterface = {0x01, 0x00, 0x00, 0x00, 0x0b, 0x00, 0x00,
                                      0x00, 0x0c, 0x00, 0x0d, 0x00, 0x0e, 0x00,
                                      0x00, 0x00, 0x12, 0x34, 0x56, 0x78, 0x02};
// A service name: id 0x21222324, def 0x31323334, VDC 0x4142, type 0x0607, input.
inline const Bytes kService = {0x02, 0x21, 0x22, 0x23, 0x24, 0x31, 0x32, 0x33, 0x34, 0x41, 0x42,
                               0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x07, 0x01};
// A generic name: VDC 0x5152, v8 0x53, v16a 0x5455, v16b 0x5657, v32a 0x58595a5b, v32b 0x5c5d5e5f,
// type 0x0100, direction 0.
inline const Bytes kGeneric = {0x03, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5a,
                               0x5b, 0x5c, 0x5d, 0x5e, 0x5f, 0x00, 0x00, 0x01, 0x00, 0x00};

inline Bytes with(Bytes name, std::size_t at, std::uint8_t byte) {
  name.at(at) = byte;
  return name;
}

// The name in host order, converted by its format's layout.
inline Bytes host_form(Bytes name) {
  if (std::endian::native == std::endian::big) return name;
  const auto swap = [&name](std::size_t at, std::size_t width) {
    for (std::size_t i = 0; i < width / 2; ++i) std::swap(name[at + i], name[at + width - 1 - i]);
  };
  swap(16, 4);
  if (name[0] == 3) {
    swap(1, 2);
    swap(4, 2);
    swap(6, 2);
    swap(8, 4);
    swap(12, 4);
  } else {
    swap(1, 4);
    swap(5, 4);
    swap(9, 2);
    if (name[0] != 2) swap(11, 2);
  }
  return name;
}

// An integer in host order in a host-order name.
template <class T>
T field_at(const Bytes& name, std::size_t at) {
  T value;
  std::memcpy(&value, &name.at(at), sizeof value);
  return value;
}

// What fits a printer's buffer.
inline std::string cut(const std::string& text) {
  return text.substr(0, 254);
}

}  // namespace dbg_test

#endif
