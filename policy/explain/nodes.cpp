// Node types, the fields of their records, their links: what schema/rows.h says of them, and what
// they are for.
#include <algorithm>
#include <array>
#include <set>
#include <string_view>

#include "policy/base/names.h"
#include "policy/explain/topics.h"
#include "schema/names.h"
#include "schema/rows.h"

namespace qimctl {

namespace {

using qim::schema::Coding;
using qim::schema::Families;
using qim::schema::Naming;
using qim::schema::NodeType;
using qim::schema::Record;
using qim::schema::Row;
using qim::schema::Slot;

struct Purpose {
  std::string_view of;
  std::string_view what;
};

// By type, and by record and field.
constexpr std::array purposes{
    Purpose{"Filter", "an entry of a list: criteria that a packet is held against"},
    Purpose{"Action", "what is done with a packet, such as accept, drop or log"},
    Purpose{"Ifelse", "a branch: which policy goes on depends on what another one says"},
    Purpose{"Hfilter", "an entry of a list that stands for a whole policy"},
    Purpose{"Haction", "an action that stands for a whole policy"},
    Purpose{"Police", "an action that limits a rate, with a policy for each of three outcomes"},
    Purpose{"Group", "the head of a list, such as an access list"},
    Purpose{"Pinst", "a policy instance: a policy in one direction, at one stage"},
    Purpose{"Def", "the default: what becomes of a packet that no entry matches"},
    Purpose{"Edest", "an enforcement destination: where a policy instance is applied"},
    Purpose{"Dset", "a data set that has a name and nothing else"},
    Purpose{"DsetNoname", "a data set without a name"},
    Purpose{"node.type", "the node's type"},
    Purpose{"node.links_total", "how many links the node holds"},
    Purpose{"node.links_unfixed", "how many of its links no slot holds"},
    Purpose{"node.refs", "how many nodes refer to it"},
    Purpose{"node.priv_len", "bytes of the asking client's private data on it"},
    Purpose{"node.flags", "flags of the node, the client's own"},
    Purpose{"node.group",
            "a group number; nodes of one access list carry their Group's identifier"},
    Purpose{"criterion.type", "what is compared; 'qimctl explain' knows those of access lists"},
    Purpose{"criterion.args", "what it is compared with, as the type lays it out"},
    Purpose{"filter.flags", "flags of the filter, the client's own"},
    Purpose{"filter.match", "the branch that evaluation takes when all criteria hold"},
    Purpose{"filter.nomatch", "the branch that it takes when one does not"},
    Purpose{"filter.crit", "the criteria, all of which must hold"},
    Purpose{"filter.crit_cnt", "how many criteria there are"},
    Purpose{"filter.crit_bytes", "bytes that the criteria take"},
    Purpose{"hfilter.type", "the kind of hierarchical filter, the client's own"},
    Purpose{"hfilter.true_act", "the branch taken when the policy below says true"},
    Purpose{"hfilter.false_act", "the branch taken when it says false"},
    Purpose{"hfilter.nomatch_act", "the branch taken when nothing in it matches"},
    Purpose{"action.type", "what is done: 1 accept, 2 drop, 3 reject, 0x101 log-syslog"},
    Purpose{"action.args", "how it is done, as the type lays it out"},
    Purpose{"haction.type", "the kind of hierarchical action, the client's own"},
    Purpose{"action_bw.rate_units",
            "what the rate counts; access lists: 1 bytes, 2 packets a second"},
    Purpose{"action_bw.rate", "the rate"},
    Purpose{"action_bw.burst_units", "what the burst counts"},
    Purpose{"action_bw.burst", "how much may come at once"},
    Purpose{"police.comt_bw", "the committed rate and its burst"},
    Purpose{"police.peak_bw", "the peak rate and its burst"},
    Purpose{"def.type", "what is done, as in action.type"},
    Purpose{"def.args", "how it is done"},
    Purpose{"group.type", "the kind of group; 1 for Ifelse branches, 2 an access list"},
    Purpose{"group.subtype", "of an access list what it may match on: 1 eth + 2 ipv4 + 4 ipv6"},
    Purpose{"pinst.edests", "how many nodes refer to the policy instance"},
    Purpose{"pinst.nonedests", "how many of those that refer to it are none of its destinations"},
    Purpose{"ln_081", "the next entry of the list"},
    Purpose{"ln_102", "the policy that stands for the entry"},
    Purpose{"ln_141", "the next action, which is done too"},
    Purpose{"ln_182", "the policy that stands for the action"},
    Purpose{"ln_201", "the policy of packets within the committed rate"},
    Purpose{"ln_202", "the policy of packets within the peak rate"},
    Purpose{"ln_203", "the policy of packets above it"},
    Purpose{"ln_241", "a branch's first policy"},
    Purpose{"ln_242", "a branch's second policy"},
    Purpose{"ln_243", "a branch's third policy"},
    Purpose{"ln_244", "a branch's fourth policy"},
    Purpose{"ln_281",
            "the first of what the group holds; of an access list its first Filter, with "
            "the number of Filters in val"},
    Purpose{"ln_282", "what becomes of a packet that nothing in the group matches"},
    Purpose{"ln_2c1", "of a Pinst its policy, of an Edest or a data set its Pinst"},
    Purpose{"ln_301", "another default"},
    Purpose{"ln_302", "the policy that stands for the default"},
};

std::string purpose(std::string_view of) {
  const auto* found = std::find_if(purposes.begin(), purposes.end(),
                                   [of](const Purpose& known) { return known.of == of; });
  return found == purposes.end() ? "" : std::string(found->what);
}

void add_fact(Topic& topic, const char* what, const std::string& fact) {
  if (!fact.empty()) topic.facts.emplace_back(what, fact);
}

template <typename Items, typename Text>
std::string listed(const Items& items, Text text) {
  std::string list;
  for (const auto& item : items) {
    const std::string one = text(item);
    if (!one.empty()) list += (list.empty() ? "" : ", ") + one;
  }
  return list;
}

// Calls visit(type) for each node type.
template <typename Visit>
void each_type(Visit visit) {
  for (const NodeType& type : qim::schema::tlv_types) visit(type);
  for (const NodeType& type : qim::schema::dset_types) visit(type);
}

template <typename Wanted>
std::string types_that(Wanted wanted) {
  std::string list;
  each_type([&](const NodeType& type) {
    if (wanted(type)) list += (list.empty() ? "" : ", ") + std::string(type.name);
  });
  return list;
}

// The types whose nodes hold a record, as their own or inside it.
std::string users_of(const Record& record) {
  if (&record == &qim::schema::node) return "every node";
  return types_that([&record](const NodeType& type) {
    return type.body == &record ||
           std::any_of(type.body->begin(), type.body->end(),
                       [&](const Row& row) { return row.record == &record; });
  });
}

std::string families_text(Families families) {
  if (families == qim::schema::family::any) return "any node";
  return types_that([families](const NodeType& type) { return (type.family & families) != 0; });
}

std::string naming_text(Naming naming) {
  switch (naming) {
    case Naming::never:
      return "none";
    case Naming::optional:
      return "it may have one";
    case Naming::expected:
      return "it should have one";
    case Naming::required:
      return "it must have one";
  }
  return "";
}

// The links that may lead to nodes of a family, each once.
std::string links_to(Families family) {
  std::set<std::string> names;
  for (const Record* record : qim::schema::records) {
    for (const Row& row : *record)
      if ((row.leads_to & family) != 0) names.insert(row.name);
  }
  return listed(names, [](const std::string& name) { return name; });
}

Topic type_topic(const NodeType& type) {
  Topic topic{{type.name}, {type.code}, "node type " + std::to_string(type.code), {}};
  add_fact(topic, "meaning", purpose(type.name));
  const Record& body = *type.body;
  add_fact(topic, "fields", listed(body, [](const Row& row) {
             return row.coding == Coding::none ? "" : std::string(row.name);
           }));
  add_fact(topic, "links", listed(body, [](const Row& row) {
             return row.slot == Slot::none ? "" : std::string(row.name);
           }));
  add_fact(topic, "data-set name", naming_text(type.naming));
  add_fact(topic, "reached by", links_to(type.family));
  return topic;
}

std::string link_kinds_text() {
  std::string list;
  for (const rov_name_t* kind = qim::schema::link_kind_names; kind->name != nullptr; kind++)
    list += (list.empty() ? "" : ", ") + std::to_string(kind->code) + " " + kind->name;
  return list;
}

std::string range_text(const Row& row) {
  if (row.show_kind == ROV_SHOW_ENUM) return link_kinds_text();
  if (row.coding == Coding::args) return "up to 4294967295 bytes";
  if (row.record != nullptr && row.coding == Coding::list) return "any number";
  if (row.record != nullptr) return "";
  return "0 to " + std::to_string(UINT64_MAX >> (64 - 8 * row.width));
}

Topic field_topic(const Record& record, const Row& row) {
  const std::string name = std::string(record.kind) + "." + row.name;
  Topic topic{{name, row.name}, {}, "field", {}};
  add_fact(topic, "meaning", purpose(name));
  add_fact(topic, "range", range_text(row));
  if (row.record != nullptr) {
    add_fact(topic, "holds",
             std::string(row.coding == Coding::list ? "records of " : "a record of ") +
                 row.record->kind);
  }
  add_fact(topic, "stored as",
           row.coding == Coding::none
               ? "not at all: it is counted when the node is read"
               : "TLV " + hex_number(record.struct_id << 16 | row.tlv_id, 8));
  add_fact(topic, "who uses it", users_of(record));
  return topic;
}

Topic link_topic(const Record& record, const Row& row) {
  Topic topic{{row.name}, {row.link}, "link " + hex_number(row.link, 4), {}};
  add_fact(topic, "meaning", purpose(row.name));
  add_fact(topic, "leads to", families_text(row.leads_to));
  add_fact(topic, "carries", row.slot == Slot::full ? "a node, and node2, val and tag" : "a node");
  add_fact(topic, "who uses it", users_of(record));
  return topic;
}

// Shared by several records, a link is told of once.
void add_link(std::vector<Topic>& topics, const Record& record, const Row& row) {
  for (Topic& known : topics) {
    if (known.names.front() != row.name) continue;
    known.facts.back().second += ", " + users_of(record);
    return;
  }
  topics.push_back(link_topic(record, row));
}

// Pointers, gaps and bookkeeping are nobody's business; a body is told of by the fields in it.
bool is_field(const Row& row, std::string_view name) {
  if (row.of == nullptr || row.coding == Coding::body) return false;
  return row.coding != Coding::none || !purpose(name).empty();
}

void add_record(std::vector<Topic>& topics, const Record& record) {
  for (const Row& row : record) {
    if (row.slot != Slot::none) {
      add_link(topics, record, row);
    } else if (is_field(row, std::string(record.kind) + "." + row.name)) {
      topics.push_back(field_topic(record, row));
    }
  }
}

Topic optional_link_topic() {
  Topic topic{{hex_number(QIM_LN_FILTER_TRUE, 4)},
              {QIM_LN_FILTER_TRUE},
              "link " + hex_number(QIM_LN_FILTER_TRUE, 4),
              {}};
  add_fact(topic, "meaning", "where a Filter of an access list goes on when it matches");
  add_fact(topic, "leads to", families_text(qim::schema::family::actions));
  add_fact(topic, "carries", "no slot holds it: it is read from the database");
  add_fact(topic, "who uses it", "Filter");
  return topic;
}

Topic link_kind_topic(const rov_name_t& kind) {
  Topic topic{{kind.name}, {kind.code}, "branch " + std::to_string(kind.code), {}};
  add_fact(topic, "meaning", "a branch that evaluation takes");
  add_fact(topic, "who uses it",
           "filter.match, filter.nomatch, hfilter.true_act, hfilter.false_act, "
           "hfilter.nomatch_act");
  return topic;
}

}  // namespace

std::vector<Topic> node_topics() {
  std::vector<Topic> topics;
  each_type([&topics](const NodeType& type) { topics.push_back(type_topic(type)); });
  for (const Record* record : qim::schema::records) add_record(topics, *record);
  topics.push_back(optional_link_topic());
  for (const rov_name_t* kind = qim::schema::link_kind_names; kind->name != nullptr; kind++)
    topics.push_back(link_kind_topic(*kind));
  return topics;
}

}  // namespace qimctl
