#include "tests/library/query/support.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ostream>

#include "tests/support/fake/tlv.h"

namespace query_test {

void PrintTo(const Place& place, std::ostream* os) {
  *os << "0x" << std::hex << place.status << std::dec << " at line " << place.line;
}

Places reports_of(std::string_view function) {
  Places found;
  for (const std::string& text : fake::report_texts()) {
    unsigned status = 0;
    char name[65] = "";
    int line = 0;
    if (std::sscanf(text.c_str(), "ERROR STATUS: 0x%x (%64[^/]/%d)\n", &status, name, &line) != 3) {
      ADD_FAILURE() << "no report: " << text;
    } else if (function == name) {
      found.push_back({status, line});
    }
  }
  return found;
}

void QueryTest::SetUp() {
  fake::Test::SetUp();
  fake::report_everything(ctx());
}

void QueryTest::TearDown() {
  EXPECT_EQ(fake::live_blocks(), left_) << "blocks left allocated";
  EXPECT_EQ(fake::system_blocks(), 0u) << "arrays left allocated";
  fake::Test::TearDown();
}

qim_policy_dest_t at_interface(std::uint32_t ifix, std::uint16_t vdc, std::uint32_t vrf,
                               std::uint16_t vlan) {
  qim_policy_dest_t dest{};
  dest.intf.fmt = 1;
  dest.intf.ifix = ifix;
  dest.intf.vrf = vrf;
  dest.intf.vlan = vlan;
  dest.intf.vdc = vdc;
  return dest;
}

qim_policy_dest_t at_service(std::uint32_t id, std::uint32_t def) {
  qim_policy_dest_t dest{};
  dest.srv.fmt = 2;
  dest.srv.srv_id = id;
  dest.srv.srv_def = def;
  dest.srv.srv_vdc = 0x0506;
  return dest;
}

qim_policy_dest_t at_generic(std::uint32_t v32b) {
  qim_policy_dest_t dest{};
  dest.gen.fmt = 3;
  dest.gen.vdc = 0x1112;
  dest.gen.v8 = 0x13;
  dest.gen.v16a = 0x1415;
  dest.gen.v16b = 0x1617;
  dest.gen.v32a = 0x18191a1b;
  dest.gen.v32b = v32b;
  return dest;
}

qim_policy_dest_t of_format(std::uint8_t format) {
  qim_policy_dest_t dest;
  std::memset(&dest, 0x31, sizeof dest);
  dest.fmt = format;
  return dest;
}

Bytes counting(std::size_t length) {
  Bytes bytes(length);
  for (std::size_t i = 0; i < length; ++i) bytes[i] = static_cast<std::uint8_t>(0x40 + i);
  return bytes;
}

Bytes name_of(const qim_policy_dest_t& dest, std::uint32_t type, std::uint8_t dir) {
  Bytes name(21);
  const auto put = [&name](std::size_t at, std::uint32_t value, std::uint32_t width) {
    fake::write_big(&name[at], value, width);
  };
  name[0] = dest.fmt;
  if (dest.fmt == 1) {
    put(1, dest.intf.ifix, 4);
    put(5, dest.intf.vrf, 4);
    put(9, dest.intf.vlan, 2);
    put(11, dest.intf.vdc, 2);
  } else if (dest.fmt == 2) {
    put(1, dest.srv.srv_id, 4);
    put(5, dest.srv.srv_def, 4);
    put(9, dest.srv.srv_vdc, 2);
  } else if (dest.fmt == 3) {
    put(1, dest.gen.vdc, 2);
    put(3, dest.gen.v8, 1);
    put(4, dest.gen.v16a, 2);
    put(6, dest.gen.v16b, 2);
    put(8, dest.gen.v32a, 4);
    put(12, dest.gen.v32b, 4);
  }
  put(16, type, 4);
  name[20] = dir;
  return name;
}

Buffer::Buffer(std::size_t size, std::size_t shift)
    : memory_(size + 2 * kGuard + 32, 0xcc), size_(size) {
  const auto at = reinterpret_cast<std::uintptr_t>(memory_.data());
  start_ = memory_.data() + kGuard + (-at & 15) + shift % 16;
  refill();
}

Buffer::~Buffer() {
  std::fill(start_, start_ + size_, std::uint8_t{0xcc});
  EXPECT_EQ(memory_, Bytes(memory_.size(), 0xcc)) << "written beyond the buffer";
}

void Buffer::refill() {
  std::fill(start_, start_ + size_, std::uint8_t{0xee});
}

bool hit_node(const fake::Hit& hit) {
  return fake::block_size(hit.call.pointer<void>(0)) == sizeof(qim_node_cache_entry_t);
}

bool hit_close(const fake::Hit& hit, const NodeBlocks& blocks) {
  return hit.call.name == "mem_free" && (hit.nth - 1) % blocks.freed() >= blocks.scratch;
}

std::size_t left_behind(const fake::Hit& hit, const NodeBlocks& blocks) {
  if (hit_close(hit, blocks)) return blocks.freed() - (hit.nth - 1) % blocks.freed();
  if (hit.call.name == "mem_free") return 1 + blocks.owned();
  if (hit.call.name == "rov_node_ln_field_get") return blocks.decoded;
  if (hit.call.name == "rov_tlv_to_bufptr") return blocks.decoded - 1;
  return 0;
}

}  // namespace query_test
