// `qimctl name`: building and reading data-set names, without a database.
#include "tools/commands/name.h"

#include "policy/base/dsetname.h"
#include "policy/base/names.h"
#include "tools/base/output.h"

namespace qimctl {

void print_built_name(const qim_pinst_fields_t& fields, OutputForm form) {
  qim_dsetname_t name{};
  qim_pinst_to_dsetname(&fields, &name);
  const std::string digits = hex_bytes(&name, sizeof name);
  if (!is_text(form)) return print_value(digits, form);
  print(digits + "\n");
}

void print_parsed_name(const qim_dsetname_t& name, OutputForm form) {
  qim_dsetname_t copy = name;
  qim_pinst_fields_t fields{};
  qim_pinst_from_dsetname(&fields, &copy);
  if (!is_text(form)) return print_value(dset_to_json(name), form);
  print(dset_text(fields) + "\n");
}

}  // namespace qimctl
