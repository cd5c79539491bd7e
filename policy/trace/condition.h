// Criteria taken apart: what each asks of a packet, and whether a packet has it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "policy/model/model.h"
#include "policy/trace/packet.h"

namespace qimctl {

// What one criterion asks.
struct Condition {
  enum class Kind : uint8_t {
    always,     // nothing
    header,     // the packet has the header
    range,      // the field is in first to last
    except,     // the field is none of first to last
    masked,     // the field's bits in `last` are those of `first`
    options,    // the TCP options are these bytes
    rest,       // what follows the ICMP checksum begins with these bytes
    ingress,    // the packet comes by this interface
    egress,     // the packet leaves by this interface
    undecided,  // nobody here knows: a match of another model, an unknown type, damaged arguments
  };
  Kind kind = Kind::undecided;
  Header header = Header::interface;  // that the packet must have; interface: none
  Field field = Field::ethertype;
  Wide first;
  Wide last;
  std::vector<uint8_t> bytes;  // of options and rest; the name of an interface

  // Of numbers only; a range that the field can't have is never met, but is a range.
  bool has_range() const { return kind == Kind::range || kind == Kind::except; }
};

Condition to_condition(const Criterion& criterion);

Truth holds(const Condition& condition, const Packet& packet);

// The field's bits, 128 at most: values that it can have are 0 to 2 ** bits - 1.
uint32_t field_bits(Field field, Header header);

// What the packet has where the criterion asks: "20", "no tcp header", "not said".
std::string value_text(const Condition& condition, const Criterion& criterion,
                       const Packet& packet);

}  // namespace qimctl
