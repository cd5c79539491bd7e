// Help in this tool's words.
#include "tools/options/help.h"

#include <memory>
#include <set>
#include <string>

namespace qimctl {

namespace {

// "; not with --raw, --type", by the names as they are told apart.
std::string related(const char* words, const std::set<CLI::Option*>& options) {
  std::set<std::string> names;
  for (const CLI::Option* option : options) names.insert(option->get_name());
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? words : ", ") + name;
  return text;
}

class OwnWords : public CLI::Formatter {
 public:
  OwnWords() {
    label("Positionals", "Arguments");
    label("OPTIONS", "OPTION...");
    label("SUBCOMMAND", "COMMAND");
  }

  // What a name is followed by. Which arguments may be left out is seen in the line of usage.
  std::string make_option_opts(const CLI::Option* option) const override {
    const bool many = option->get_expected_max() == CLI::detail::expected_max_vector_size;
    const std::string& type = option->get_type_name();
    const bool takes = option->get_type_size() != 0 && !type.empty();
    return (takes ? " " + type : "") + (many ? " ..." : "");
  }

  std::string make_option_desc(const CLI::Option* option) const override {
    const std::string& otherwise = option->get_default_str();
    return option->get_description() + (otherwise.empty() ? "" : "; else " + otherwise) +
           related("; only with ", option->get_needs()) +
           related("; not with ", option->get_excludes());
  }
};

}  // namespace

void use_own_words(CLI::App& app) {
  app.formatter(std::make_shared<OwnWords>());
  app.group("Commands");
  app.set_help_flag("-h,--help", "Show this help");
}

}  // namespace qimctl
