// The other words that the tool prints: of access lists, of what it found, of what it keeps.
#include <array>
#include <string_view>

#include "policy/base/text.h"
#include "policy/explain/topics.h"

namespace qimctl {

namespace {

// `names` are apart by commas; the first is its own.
struct Term {
  std::string_view names;
  std::string_view kind;
  std::string_view meaning;
  std::string_view range;  // "" = none
  std::string_view users;
};

constexpr std::string_view of_lists = "word of access lists";
constexpr std::string_view of_changes = "word of changes";
constexpr std::string_view of_traces = "word of traces";
constexpr std::string_view of_findings = "finding";
constexpr std::string_view of_defects = "defect";
constexpr std::string_view of_databases = "word of databases";
constexpr std::string_view of_nodes = "word of nodes";
constexpr std::string_view of_files = "word of files";

constexpr std::array terms{
    Term{
        "access list,list,lists,acl", of_lists,
        "entries that are tried in order, and a default; attached to interfaces it decides packets",
        "", "qimctl acl, apply, diff, trace, check"},
    Term{"entry,entries,ace", of_lists,
         "a line of an access list: what it matches, and what is done with packets that match", "",
         "qimctl acl, diff, trace, check"},
    Term{"matches,match,criterion,criteria", of_lists,
         "what an entry asks of a packet; all of it must hold", "", "qimctl acl, diff, trace"},
    Term{"action", of_lists, "what an entry does with the packets that it matches",
         "accept, drop or reject; log and police NAME besides", "qimctl acl, diff, trace"},
    Term{"default", of_lists,
         "what becomes of a packet that no entry matches: that of the last list that is asked",
         "accept, drop, reject", "qimctl acl, diff, trace; as a link, ln_282 of a Group"},
    Term{"attached,attachment,detached", of_lists,
         "an access list is asked at an interface, in one direction", "",
         "qimctl acl, apply, diff, detach"},
    Term{"nowhere", of_lists, "attached to no interface, so that no packet is held against it", "",
         "qimctl acl, check"},
    Term{"interface,interfaces,if", of_lists,
         "where packets come in and go out; in places if:NAME/in and if:NAME/out", "",
         "qimctl acl, trace, detach, status"},
    Term{"direction,in,out", of_lists,
         "in: packets that enter the device at the interface; out: those that leave it there",
         "in, out", "if:NAME/in, if:NAME/out"},
    Term{"stage,stages", of_lists,
         "the place of a list among those at one interface and direction: they are asked in this "
         "order, the first entry that matches decides, and a list without a match hands on",
         "1 to 65535", "qimctl acl, diff, trace; the low 16 bits of an Edest's policy type"},
    Term{"log", of_lists, "the packet is written to the system's log, too: log-syslog", "",
         "actions of entries"},
    Term{"police,policer", of_lists, "limits how much an entry lets through: \"police NAME\"", "",
         "actions of entries (Police)"},
    Term{"bytes/s,packets/s", of_lists, "what the rate of a policer counts, each second",
         "0 to 18446744073709551615, 0 for no limit", "qimctl acl NAME (action_bw.rate)"},
    Term{"burst", of_lists, "how much may come at once, beyond the rate of a policer",
         "0 to 18446744073709551615", "qimctl acl NAME (action_bw.burst)"},
    Term{"peak", of_lists, "the second, higher rate of a policer", "0 to 18446744073709551615",
         "qimctl acl NAME (police.peak_bw)"},
    Term{"no limit", of_lists, "a policer without rates: it lets everything through", "",
         "qimctl acl NAME"},
    Term{"opaque", of_lists,
         "a match that only another data model understands: it is carried, shown and exported, but "
         "nobody here can decide it",
         "", "qimctl acl, trace, check (entry.opaque)"},
    Term{"counters,packets,bytes", of_lists, "how many packets each entry decided, and their bytes",
         "0 to 18446744073709551615", "qimctl acl NAME --counters"},

    Term{"added,+", of_changes, "was not there before", "", "qimctl apply, diff, watch"},
    Term{"removed,deleted,-", of_changes, "is there no longer", "", "qimctl apply, diff, watch"},
    Term{"changed,~", of_changes, "says something else; a => b stands for before and after", "",
         "qimctl apply, diff, watch"},
    Term{"moved", of_changes, "says the same and stands elsewhere in its list", "",
         "qimctl apply, diff, watch"},
    Term{"unchanged", of_changes, "is as the file says already; nothing is written", "",
         "qimctl apply, import --replace"},
    Term{"asked in another order,order", of_changes,
         "the lists at a place are asked in another order; their stages tell it", "",
         "qimctl apply, diff"},
    Term{"stage numbered anew", of_changes, "the number of the stage changes, the order does not",
         "", "qimctl apply"},
    Term{"accepted", of_files, "carried as it is", "", "qimctl import -v, apply -v"},
    Term{"approximated", of_files, "carried differently from what the file says; --lossy takes it",
         "", "qimctl import, apply"},
    Term{"skipped", of_files, "not carried at all; --lossy leaves it out", "",
         "qimctl import, apply"},

    Term{"verdict", of_traces, "what becomes of the packet, and which entry or default says so",
         "accept, drop or reject; log and police NAME besides; or cannot tell", "qimctl trace"},
    Term{"yes,no,there", of_traces, "the entry matches the packet, or does not", "",
         "qimctl trace"},
    Term{"cannot tell,not said,not known here,unknown", of_traces,
         "the packet as described, or a match of another model, leaves it open; all ways are "
         "followed, and the verdict is certain when they agree",
         "", "qimctl trace"},
    Term{"why", of_traces, "the first criterion that does not hold, and what the packet has", "",
         "qimctl trace"},
    Term{"packet", of_traces,
         "headers, addresses and fields in words, such as tcp 192.0.2.5:4000 > 198.51.100.7:22 syn",
         "", "qimctl trace, diff --semantic"},
    Term{"frame", of_traces,
         "a packet as the hexadecimal digits of its bytes, from the Ethernet "
         "header on",
         "", "PACKET of qimctl trace"},

    Term{"shadowed,never reached", of_findings,
         "entries before it decide all its packets: it does nothing and can be removed", "",
         "qimctl check"},
    Term{"redundant", of_findings, "without it every packet is decided as it is", "",
         "qimctl check"},
    Term{"conflict", of_findings,
         "overlaps an entry before it that does something else: the order between them matters", "",
         "qimctl check -v"},
    Term{"impossible,never match", of_findings,
         "no packet can match, such as one with an empty range of ports", "", "qimctl check"},
    Term{"undecided", of_findings,
         "only another model can decide it, and entries behind it do something else", "",
         "qimctl check"},
    Term{"gave_up", of_findings, "not analysed to the end: it would have taken too long", "",
         "qimctl check"},
    Term{"unattached", of_findings, "the list is attached nowhere: a note, not a defect", "",
         "qimctl check"},
    Term{"undecodable", of_defects, "the policy library can't read the node", "",
         "qimctl check, list"},
    Term{"dangling,missing", of_defects, "a link leads to a node that is not there", "",
         "qimctl check, show, tree"},
    Term{"target_type", of_defects, "a link leads to a node of a type that it can't lead to", "",
         "qimctl check"},
    Term{"unreferenced", of_defects, "nothing refers to the node, and it is no data set", "",
         "qimctl check"},
    Term{"data_set_name", of_defects, "the data-set name and the node disagree", "",
         "qimctl check"},
    Term{"same_place", of_defects, "two enforcement destinations of one policy, or of one name", "",
         "qimctl check"},
    Term{"defect,defects", of_defects, "something wrong with the policy in a database: exit code 7",
         "", "qimctl check"},
    Term{"unreadable", of_defects, "looks like an access list and can't be read as one", "",
         "qimctl acl, check, status"},

    Term{"database", of_databases, "the directory that holds nodes and links", "",
         "--db DIR, ROV_DB, ./qim.db"},
    Term{"revision,revisions", of_databases, "the number of a commit; each one has the next",
         "1 to 18446744073709551615", "qimctl apply, status, watch, --from"},
    Term{"snapshot", of_databases, "a state of a database that stays readable, by a name", "",
         "qimctl snapshot, rollback, --at, diff --from"},
    Term{"last change", of_databases, "when the newest revision was committed, and by whom", "",
         "qimctl status"},
    Term{"policy", of_databases,
         "all that the database holds of access lists; as a link, to what stands for the node", "",
         "qimctl status, check; qimctl show, tree"},
    Term{"file,page,pages,free", of_databases,
         "the database's file is made of pages; those that are free are used again, and "
         "'qimctl compact' gives them back",
         "", "qimctl status, check"},
    Term{"record,records", of_databases, "what the file stores, nodes and all else", "",
         "qimctl check"},
    Term{"writer", of_databases, "the process that is writing; there is one at most", "",
         "qimctl status"},
    Term{"reader,readers,behind", of_databases,
         "a process with a session, which holds the revision that it reads; how far it is behind",
         "", "qimctl status"},
    Term{"watcher,watchers", of_databases, "a process that waits for changes", "", "qimctl status"},
    Term{"node put,put", of_databases, "a node was made or changed", "", "qimctl watch"},
    Term{"node deleted", of_databases, "a node was deleted", "", "qimctl watch"},
    Term{"link put", of_databases, "a link was made or changed", "", "qimctl watch"},
    Term{"link deleted", of_databases, "a link was deleted", "", "qimctl watch"},
    Term{"posted", of_databases, "a client told others of a piece of private data", "",
         "qimctl watch --raw"},
    Term{"gap", of_databases, "changes were lost or too many to tell: read everything again", "",
         "qimctl watch"},

    Term{"node,nodes", of_nodes, "what the database stores: a type, a body, links", "",
         "qimctl list, show, tree, status"},
    Term{"link,links", of_nodes, "leads from a node to another, by a field code", "",
         "qimctl show, tree, watch"},
    Term{"contents,computed", of_nodes, "what a node holds; what the library counts of it", "",
         "qimctl list, show"},
    Term{"first", of_nodes, "the link to the first entry of a list: ln_281 of a Group", "",
         "qimctl show, tree"},
    Term{"next", of_nodes, "the link to the next entry, action or default: ln_081, ln_141, ln_301",
         "", "qimctl show, tree"},
    Term{"true", of_nodes, "the link that a matching Filter takes: 0x8082", "",
         "qimctl show, tree"},
    Term{"policy 1,policy 2,policy 3,policy 4", of_nodes,
         "the policies of a Police (ln_201 to ln_203) or an Ifelse (ln_241 to ln_244)", "",
         "qimctl show, tree"},
    Term{"name", of_nodes,
         "the Action that holds what a list, an interface or a policer is called, and the link to "
         "it",
         "", "qimctl list, show, tree"},
    Term{"node2,val,tag", of_nodes, "what a link carries beside its node", "0 to 4294967295",
         "qimctl show, tree"},
    Term{"cycle,shared,deeper", of_nodes,
         "why a node is not expanded: it leads back to itself, is above already, or lies too deep",
         "", "qimctl tree"},
    Term{"priv,private data", of_nodes, "what a client keeps on a node; others don't see it", "",
         "qimctl priv, show"},
    Term{"dset,data set", of_nodes,
         "what clients find by a name: a destination, a policy type and a direction", "",
         "qimctl pinst, name, show"},
    Term{"service,generic", of_nodes, "forms of the destination in a data-set name", "",
         "qimctl edest, name"},
    Term{"vrf,vdc,srv_def,srv_vdc,v8,v16a,v16b,v32a,v32b,ifix", of_nodes,
         "members of the destination in a data-set name, the client's own", "",
         "qimctl edest, name, show"},
};

}  // namespace

std::vector<Topic> word_topics() {
  std::vector<Topic> topics;
  topics.reserve(terms.size());
  for (const Term& term : terms) {
    Topic topic{split_at_commas(std::string(term.names)), {}, std::string(term.kind), {}};
    topic.facts.emplace_back("meaning", term.meaning);
    if (!term.range.empty()) topic.facts.emplace_back("range", term.range);
    topic.facts.emplace_back("who uses it", term.users);
    topics.push_back(std::move(topic));
  }
  return topics;
}

}  // namespace qimctl
