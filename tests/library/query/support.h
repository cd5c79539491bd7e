// What the tests of query/ share: a test with every report on, policy destinations and the names
// that they give, and what stays allocated when freeing fails.
#ifndef TESTS_LIBRARY_QUERY_SUPPORT_H
#define TESTS_LIBRARY_QUERY_SUPPORT_H

#include <iosfwd>
#include <string_view>
#include <vector>

#include "tests/support/fake/fixture.h"
#include "tests/support/fake/sweep.h"

namespace query_test {

using fake::Bytes;
using fake::kSes;

// Database statuses: one that means nothing to the library, the two that do, and a status of the
// library's own that two places treat alike.
inline constexpr std::uint32_t kFailure = 0x41170047;
inline constexpr std::uint32_t kOtherFailure = 0x41170044;
inline constexpr std::uint32_t kNoItem = 0x41170006;
inline constexpr std::uint32_t kNoLink = 0x4117000f;
inline constexpr std::uint32_t kNoEdest = 0x41160008;

inline constexpr std::uint32_t kNodeType = 0x41160002;
inline constexpr std::uint32_t kInternal = 0x41160003;
inline constexpr std::uint32_t kInvalid = 0x41160005;
inline constexpr std::uint32_t kBufSmall = 0x4116000d;
inline constexpr std::uint32_t kNoMem = 0x41160010;

// Bytes that count up.
Bytes counting(std::size_t length);

// A report: its status and line.
struct Place {
  std::uint32_t status;
  int line;
  friend bool operator==(const Place&, const Place&) = default;
};
void PrintTo(const Place& place, std::ostream* os);
using Places = std::vector<Place>;
// Where this function reported, in order.
Places reports_of(std::string_view function);

class QueryTest : public fake::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The test leaves this many blocks behind, as the contract says.
  void expect_left(std::size_t blocks) { left_ = blocks; }
  static void report_nothing() { ctx()->db_parms.dbg_flags = QIM_DBG_ALL; }

 private:
  std::size_t left_ = 0;
};

// The bytes of an object, and an object of a byte's value throughout.
template <class T>
Bytes bytes_of(const T& object) {
  const auto* const at = reinterpret_cast<const std::uint8_t*>(&object);
  return Bytes(at, at + sizeof object);
}
template <class T>
void spoil(T& object) {
  auto* const at = reinterpret_cast<std::uint8_t*>(&object);
  std::fill(at, at + sizeof object, std::uint8_t{0xee});
}

// ---- Destinations and names ------------------------------------------------------------------

qim_policy_dest_t at_interface(std::uint32_t ifix, std::uint16_t vdc = 0x0102,
                               std::uint32_t vrf = 0x01020304, std::uint16_t vlan = 0x0a0b);
qim_policy_dest_t at_service(std::uint32_t id, std::uint32_t def = 0x21222324);
qim_policy_dest_t at_generic(std::uint32_t v32b);
qim_policy_dest_t of_format(std::uint8_t format);

inline constexpr std::uint32_t kType = 0x00000305;
inline constexpr std::uint8_t kDir = 1;

// The data-set name of a destination, byte by byte in network order.
Bytes name_of(const qim_policy_dest_t& dest, std::uint32_t type = kType, std::uint8_t dir = kDir);

// ---- Buffers ---------------------------------------------------------------------------------

// A caller's buffer at any alignment, between bytes that nothing may write. It is full of 0xee.
class Buffer {
 public:
  // `shift` bytes beyond a multiple of 16.
  explicit Buffer(std::size_t size, std::size_t shift = 0);
  ~Buffer();
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;

  std::uint8_t* data() { return start_; }
  std::uint32_t size() const { return static_cast<std::uint32_t>(size_); }
  Bytes bytes() const { return Bytes(start_, start_ + size_); }
  Bytes bytes(std::size_t from, std::size_t count) const {
    return Bytes(start_ + from, start_ + from + count);
  }
  bool untouched() const { return bytes() == Bytes(size_, 0xee); }
  void refill();

 private:
  static constexpr std::size_t kGuard = 32;

  Bytes memory_;
  std::uint8_t* start_;
  std::size_t size_;
};

// ---- Frees that fail -------------------------------------------------------------------------

// Whether a failed mem_free hit a node itself, and not a buffer beside it.
bool hit_node(const fake::Hit& hit);

// What opening and closing a node frees: first open's scratch, then what the node owns, which is
// what decoding allocated, perhaps its private data, and the node.
struct NodeBlocks {
  std::size_t scratch;
  std::size_t decoded;
  bool priv;

  std::size_t owned() const { return decoded + (priv ? 1 : 0) + 1; }
  std::size_t freed() const { return scratch + owned(); }
};

// Whether a failed mem_free happened in a close, when only nodes of this shape were opened.
bool hit_close(const fake::Hit& hit, const NodeBlocks& blocks);

// Blocks that stay allocated when a call of an open or close failed. A free that fails while a node
// is opened leaves it open, and nobody closes it; one that fails in a close leaves what was not
// freed yet; when links fail to resolve, or bytes to decode, what was decoded stays.
std::size_t left_behind(const fake::Hit& hit, const NodeBlocks& blocks);

}  // namespace query_test

#endif
