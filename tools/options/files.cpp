// Options of every command that reads policy files.
#include "tools/options/files.h"

#include <span>

namespace qimctl {

namespace {

void add_format(CLI::App* command, Format& format, std::span<const FormatName> known,
                const char* help) {
  std::map<std::string, Format> formats;
  std::string names;
  for (const FormatName& one : known) {
    formats.emplace(one.name, one.format);
    names += (names.empty() ? "" : ",") + std::string(one.name);
  }
  command->add_option("--format", format, help)
      ->transform(CLI::CheckedTransformer(formats).description("{" + names + "}"))
      ->type_name("FORMAT");
}

}  // namespace

void add_written_format(CLI::App* command, Format& format) {
  add_format(command, format, written_formats, "Format to write; rfc8519 when not given");
}

void add_file_options(CLI::App* command, Format& format, ReadOptions& reading) {
  add_format(command, format, format_names, "Format of the files; guessed when not given");
  command
      ->add_option("--interface", reading.interface,
                   "The interface that the device of a device profile is behind")
      ->type_name("NAME");
}

}  // namespace qimctl
