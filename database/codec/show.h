// Rendering nodes, data sets and the database as text for people, by what clients registered.
#ifndef DATABASE_CODEC_SHOW_H
#define DATABASE_CODEC_SHOW_H

#include "rov_types.h"

namespace rov {

// Lines of text for a client's `out`, each begun with its prefix and two blanks a level.
class ShowText {
 public:
  explicit ShowText(const rov_show_req_t& req) : req_(req) {}

  [[gnu::format(printf, 3, 4)]] void line(uint32_t level, const char* format, ...);
  // "NAME aa bb ..", sixteen bytes a line, the later lines one level deeper.
  void bytes(uint32_t level, const char* name, const uint8_t* data, uint32_t len);
  // Text that came with its own lines and prefixes.
  void text(const char* text) { req_.out(text, req_.arg); }

  const char* prefix() const { return req_.prefix != nullptr ? req_.prefix : ""; }
  uint32_t ses() const { return req_.ses; }
  void* arg() const { return req_.arg; }

 private:
  void indent(uint32_t level);

  const rov_show_req_t& req_;
};

// Shows the attributes of `len` bytes of TLV data by an attribute table (NULL: all as raw bytes).
// What cannot be read is said in its place and as status: ROV_ERR_TLV_TRUNCATED,
// ROV_ERR_TLV_OVERLONG, ROV_ERR_TLV_DEPTH, ROV_ERR_TLV_WIDTH; the rest is shown as far as it goes.
uint32_t show_tlv(ShowText& out, const rov_show_t* table, uint32_t level, const uint8_t* tlv,
                  uint32_t len);

}  // namespace rov

#endif
