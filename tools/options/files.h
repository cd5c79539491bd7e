// Options that commands which read policy files or make a database have in common.
#pragma once

#include <cstdint>

#include "policy/formats/any/any.h"
#include "tools/options/commands.h"

namespace qimctl {

// --format and --interface.
void add_file_options(CLI::App* command, Format& format, ReadOptions& reading);

// --group of a command that can make a database.
void add_group(CLI::App* command, uint32_t& group);

// --format of a command that writes one.
void add_written_format(CLI::App* command, Format& format);

}  // namespace qimctl
