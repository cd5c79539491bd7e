// Options of every command that reads policy files.
#pragma once

#include "policy/formats/any/any.h"
#include "tools/options/commands.h"

namespace qimctl {

// --format and --interface.
void add_file_options(CLI::App* command, Format& format, ReadOptions& reading);

// --format of a command that writes one.
void add_written_format(CLI::App* command, Format& format);

}  // namespace qimctl
