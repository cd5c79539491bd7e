// The TLV value of a data-set name as text: its bytes, then what they mean.
#include <string.h>

#include "dbg/show.h"
#include "dbg/text.h"
#include "mem.h"

namespace qim::dbg {
namespace {

constexpr size_t kBufferSize = 256;
constexpr uint32_t kBytesPerLine = 16;

// The bytes come first and as they are: they are what is left to look at when they mean nothing.
void add_hex_lines(Text& text, const uint8_t* bytes, uint32_t len, const char* prefix) {
  for (uint32_t done = 0; done < len; done += kBytesPerLine) {
    const uint32_t left = len - done;
    text.add("\n%s", prefix);
    text.advance(snprintf_bytes(text.at(), text.room(), bytes + done,
                                left < kBytesPerLine ? left : kBytesPerLine, 1));
  }
}

void add_dest(Text& text, const qim_policy_dest_t& dest, const char* prefix) {
  switch (dest.fmt) {
    case QIM_DEST_SRV:
      text.add("%ssrv_id %#x srv_def %#x srv_vdc %#x\n", prefix, dest.srv.srv_id, dest.srv.srv_def,
               dest.srv.srv_vdc);
      return;
    case QIM_DEST_GEN:
      text.add("%svdc %#x v8 %#x v16a %#x v16b %#x v32a %#x v32b %#x\n", prefix, dest.gen.vdc,
               dest.gen.v8, dest.gen.v16a, dest.gen.v16b, dest.gen.v32a, dest.gen.v32b);
      return;
    case QIM_DEST_IF:
      text.add("%svdc %#x  vrf %#x  vlan %#x ifix %#x\n", prefix, dest.intf.vdc, dest.intf.vrf,
               dest.intf.vlan, dest.intf.ifix);
      return;
    default:
      text.add("WARNING: UNKNOWN FORMAT\n");
      return;
  }
}

}  // namespace
}  // namespace qim::dbg

extern "C" char* qim_dbg_dsetname_tlv_show(uint32_t, uint32_t, uint32_t, uint32_t len,
                                           const void* value, const char* prefix, uint32_t, void*) {
  static char buffer[qim::dbg::kBufferSize];
  memset(buffer, 0, sizeof(buffer));
  qim_dsetname_t name;
  memset(&name, 0, sizeof(name));
  qim::dbg::Text text(buffer, sizeof(buffer) - 1);

  if (len != sizeof(name)) {
    text.add("\n%s\n", "WARNING: PINST / TLV SIZE MISMATCH!");
    len = len < sizeof(name) ? len : static_cast<uint32_t>(sizeof(name));
  }
  const auto* bytes = static_cast<const uint8_t*>(value);
  qim::dbg::add_hex_lines(text, bytes, len, prefix);
  text.add("\n");
  if (len != 0) {
    memcpy(&name, bytes, len);  // what is missing of a short name stays zero
  }
  qim_dsetname_ntoh(&name);
  text.add("%stype %#04x  dir %d  fmt %#x\n", prefix, name.type, name.dir, name.dest.fmt);
  qim::dbg::add_dest(text, name.dest, prefix);
  return buffer;
}
