// `qimctl pinst`: the node of a data set.
#include "tools/commands/pinst.h"

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "tools/nodes/records.h"

namespace qimctl {

namespace {

void print_dset_named(const ReadSession& session, const qim_dsetname_t& name, OutputForm form) {
  qim_dsetname_t copy = name;
  qim_pinst_t pinst{};
  qim_pinst_from_dsetname(&pinst.fields, &copy);
  qim_node_t record{};
  require(qim_ses_pinst_name_get(session.handle(), &pinst, &record), "find that data set");
  print_record(session, record, form);
}

void print_dset_at(const ReadSession& session, uint32_t selector, OutputForm form) {
  qim_node_t record{};
  require(qim_ses_pinst_get(session.handle(), selector, &record),
          "find data set number " + std::to_string(selector));
  print_record(session, record, form);
}

}  // namespace

void print_dset(const ReadSession& session, const std::string& name_or_selector, OutputForm form) {
  // A name has more digits than any selector.
  const std::optional<qim_dsetname_t> name = dset_from_hex(name_or_selector);
  if (name) return print_dset_named(session, *name, form);
  print_dset_at(session, static_cast<uint32_t>(*parse_number(name_or_selector)), form);
}

}  // namespace qimctl
