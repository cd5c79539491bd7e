// `qimctl name`: building and reading data-set names, without a database.
#pragma once

#include "qim.h"
#include "tools/base/form.h"

namespace qimctl {

// Prints the name of what `fields` says.
void print_built_name(const qim_pinst_fields_t& fields, OutputForm form);

// Prints what a name in network order stands for.
void print_parsed_name(const qim_dsetname_t& name, OutputForm form);

}  // namespace qimctl
