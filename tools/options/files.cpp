// Options of every command that reads policy files.
#include "tools/options/files.h"

namespace qimctl {

void add_file_options(CLI::App* command, Format& format, ReadOptions& reading) {
  std::map<std::string, Format> formats;
  std::string names;
  for (const FormatName& known : format_names) {
    formats.emplace(known.name, known.format);
    names += (names.empty() ? "" : ",") + std::string(known.name);
  }
  command->add_option("--format", format, "Format of the files; guessed when not given")
      ->transform(CLI::CheckedTransformer(formats).description("{" + names + "}"))
      ->type_name("FORMAT");
  command
      ->add_option("--interface", reading.interface,
                   "The interface that the device of a device profile is behind")
      ->type_name("NAME");
}

}  // namespace qimctl
