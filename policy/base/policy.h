// A policy as importers hand it to the writer: nodes with everything that belongs to them, where
// each came from, and what could not be carried over.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "qim.h"

namespace qimctl {

// A place in the input. `line` counts from 1, 0 = not known; `path` is a JSON pointer (RFC 6901),
// "" = the whole file.
struct Place {
  std::string file;
  unsigned line = 0;
  std::string path;
};

// "edge.json:12: /nodes/3/id"
std::string to_string(const Place& place);

struct Criterion {
  uint32_t type = 0;
  std::vector<uint8_t> args;
};

// A link, slot or not. Identifiers are in the policy library's form; `node` is not 0.
struct Link {
  uint16_t field = 0;
  uint32_t node = 0;
  uint32_t node2 = 0;
  uint32_t val = 0;
  uint16_t tag = 0;
};

// Private data of another client than this tool.
struct ClientData {
  uint32_t client = 0;
  std::vector<uint8_t> data;
};

// A node's contents as the database keeps them: what can't be said in terms of records, or not
// without loss.
struct RawContents {
  uint32_t flags = 0;  // ROV_NODE_*
  std::vector<uint8_t> tlv;
};

// A node. `record` holds the type, the group number, the flags and the body's scalars; everything
// of variable length, the links and the counts stay out of it. `type` of a data-set node is
// QIM_NODE_DSET or QIM_NODE_DSET_NONAME.
struct Node {
  uint32_t id = 0;
  qim_node_t record{};
  std::vector<Criterion> criteria;  // Filter
  std::vector<uint8_t> args;        // Action, Def
  std::vector<Link> links;          // at most one for each field
  std::optional<qim_dsetname_t>
      dset;  // network order; Pinst, Edest and QIM_NODE_DSET have one, no other type
  std::vector<uint8_t> priv;        // private data, empty = none
  std::vector<ClientData> clients;  // that of other clients
  std::optional<RawContents> raw;   // in place of record, criteria and args
  Place place;
};

// What became of a piece of the input.
enum class Fate { accepted, approximated, skipped };

struct Finding {
  Fate fate = Fate::accepted;
  Place place;
  std::string what;
};

struct Policy {
  std::vector<Node> nodes;
  std::vector<Finding> findings;
  bool checked = false;  // the file has a checksum, and it is right
};

// One thing wrong with the input: what it is and what to do about it.
struct Problem {
  Place place;
  std::string message;
};

// Input that cannot be imported, with everything that was found wrong. what() holds all of it, a
// line for each.
class InputError : public std::runtime_error {
 public:
  explicit InputError(std::vector<Problem> found);
  InputError(Place place, std::string message);
  const std::vector<Problem>& problems() const { return problems_; }

 private:
  std::vector<Problem> problems_;
};

}  // namespace qimctl
