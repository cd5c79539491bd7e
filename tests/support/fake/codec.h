// The table walk of the programmable platform's codec. For this folder only.
#ifndef TESTS_SUPPORT_FAKE_CODEC_H
#define TESTS_SUPPORT_FAKE_CODEC_H

#include <cstdint>

#include "rov_types.h"

namespace fake::detail {

// Where encoded bytes go.
struct Output {
  std::uint8_t* at;
  std::uint8_t* end;
  std::uint32_t attributes = 0;  // of the array written last

  std::uint32_t room() const { return static_cast<std::uint32_t>(end - at); }
};

std::uint32_t decode(const tlvo_table_t& table, void* record, const std::uint8_t* at,
                     std::uint32_t len);
std::uint32_t encode(const tlvo_table_t& table, const void* record, Output& out);
std::uint32_t encoded_size(const tlvo_table_t& table, const void* record);

}  // namespace fake::detail

#endif
