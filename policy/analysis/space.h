// The space of packets that entries divide up among them.
//
// Packets come in shapes: which headers they have. Within a shape every field can have every value,
// whatever the others have, so an entry is a box there, or as few as a "not this port" makes of it,
// or nothing when it asks for a header that the shape does not have. Dimensions are those fields that
// any of the entries asks for. What nobody here can decide is a dimension too, with the values no
// and yes: the same question has the same answer wherever it is asked about one packet.
#pragma once

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "policy/analysis/box.h"
#include "policy/trace/condition.h"

namespace qimctl {

enum class Shape : uint8_t {
  other,  // no IP
  ipv4,   // none of the headers below, such as later fragments
  ipv4_tcp,
  ipv4_udp,
  ipv4_icmp,
  ipv6,
  ipv6_tcp,
  ipv6_udp,
  ipv6_icmp,
};
inline constexpr size_t shape_count = 9;

struct Dimension {
  enum class Kind : uint8_t {
    ethertype,
    number,
    masked,
    options,
    rest,
    ingress,
    egress,
    undecided
  };
  Kind kind = Kind::number;
  Field field = Field::ethertype;  // of numbers and masked ones
  size_t question = 0;             // of undecided ones

  // NOLINTNEXTLINE(modernize-use-nullptr): the compiler compares with 0, not this
  auto operator<=>(const Dimension&) const = default;
};

class Space {
 public:
  // Where packets are that are asked about, "" = anywhere.
  struct At {
    std::string ingress;
    std::string egress;
  };
  explicit Space(const std::vector<const Entry*>& entries, At at = {});

  const std::vector<Dimension>& dimensions(Shape shape) const { return dims(shape).list; }
  const Masked& masked(Shape shape) const { return dims(shape).masked; }
  // All packets of the shape.
  std::vector<Range> whole(Shape shape) const;
  // The entry's packets of the shape.
  Boxes boxes(Shape shape, const Entry& entry) const;

  // A packet in the box. What nobody here can decide is not in it.
  Packet example(Shape shape, Box box) const;
  // The box in words, as entries are: "ipv4 tcp from 10.0.0.0/8 to any port 22". The shapes are those
  // in which it is the same.
  std::string words(const std::vector<Shape>& shapes, Box box) const;
  std::string question_text(size_t question) const;

 private:
  struct Dims {
    std::vector<Dimension> list;
    Masked masked;
  };
  // What a condition asks of packets of a shape.
  struct Demand {
    bool impossible = false;
    std::optional<Dimension> dimension;  // nothing: it holds for all of them
    std::vector<Range> ranges;           // one of them
  };
  const Dims& dims(Shape shape) const { return dims_[static_cast<size_t>(shape)]; }
  Demand demand(Shape shape, const Condition& condition, const Criterion& criterion) const;
  Demand demand_number(Shape shape, const Condition& condition) const;
  Demand demand_string(const Condition& condition) const;
  Demand demand_interface(const Condition& condition) const;
  Range domain(Shape shape, const Dimension& dimension) const;
  void note_names(const Entry& entry);
  void note_dimensions(const Entry& entry);
  void set_example(Packet& packet, Shape shape, const Dimension& dimension,
                   const Range& range) const;
  std::string dimension_words(Shape shape, const Dimension& dimension, const Range& range) const;

  using Bytes = std::vector<uint8_t>;
  At at_;
  std::array<Dims, shape_count> dims_;
  // Strings that are asked for, in ascending order. In their dimensions a value is the place of the
  // last one that is met, from 1, and 0 when none is.
  std::vector<Bytes> options_;
  std::vector<Bytes> rests_;
  std::vector<Bytes> ingress_;
  std::vector<Bytes> egress_;
  std::vector<Criterion> questions_;
};

// The last value in the Ethernet type's dimension stands for packets without an Ethernet header. Where
// there is IP the type is one of few, and values are places in a list: its own type, 0x8100, 0x88a8.
uint64_t without_ethernet(Shape shape);
// What the shape says of a field; nothing when the field is free.
std::optional<uint64_t> shape_value(Shape shape, Field field);
Header shape_network(Shape shape);    // entry: none
Header shape_transport(Shape shape);  // entry: none

}  // namespace qimctl
