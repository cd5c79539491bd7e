// Options that commands which read policy files or make a database have in common.
#include "tools/options/files.h"

#include <span>

#include "tools/options/values.h"

namespace qimctl {

namespace {

void add_format(CLI::App* command, Format& format, std::span<const FormatName> known,
                const char* help) {
  std::vector<std::string> names;
  std::string listed;
  for (const FormatName& one : known) {
    names.emplace_back(one.name);
    listed += (listed.empty() ? "" : ", ") + names.back();
  }
  const auto choose = [&format, known](const std::string& name) {
    for (const FormatName& one : known) {
      if (name == one.name) format = one.format;
    }
  };
  command->add_option_function<std::string>("--format", choose, help + (": " + listed))
      ->check(check_word(names))
      ->type_name("FORMAT");
}

}  // namespace

void add_written_format(CLI::App* command, Format& format) {
  add_format(command, format, written_formats, "Format to write; rfc8519 when not given");
}

void add_group(CLI::App* command, uint32_t& group) {
  command
      ->add_option_function<std::string>(
          "--group", [&group](const std::string& text) { group = *group_number(text); },
          "The system's group that may use a database that is made; else its owner alone may")
      ->check(check_group)
      ->type_name("GROUP");
}

void add_file_options(CLI::App* command, Format& format, ReadOptions& reading) {
  add_format(command, format, format_names, "Format of the files; guessed when not given");
  command
      ->add_option("--interface", reading.interface,
                   "The interface that the device of a device profile is behind")
      ->type_name("NAME");
}

}  // namespace qimctl
