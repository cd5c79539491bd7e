// Telling formats apart, and asking the one that a file is in.
#include "policy/formats/any/any.h"

#include <array>
#include <string_view>

#include "policy/formats/iptables/iptables.h"
#include "policy/formats/native/native.h"
#include "policy/formats/nft/nft.h"
#include "policy/formats/openconfig/openconfig.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/formats/switch_tables/switch_tables.h"

namespace qimctl {

namespace {

// A member or a value that no other format has, and one of its characters that is rare in policies: texts
// are large, and a search for a rare character stops at few places.
struct Mark {
  std::string_view word;
  char rare;
  Format format;
};
constexpr std::array marks{Mark{native_format_name, 'q', Format::native},
                           Mark{rfc8519_root, '-', Format::rfc8519},
                           Mark{openconfig_root, 'g', Format::openconfig},
                           Mark{openconfig_entries, '-', Format::openconfig},
                           Mark{switch_lists_table, '_', Format::switch_tables},
                           Mark{switch_rules_table, '_', Format::switch_tables},
                           Mark{switch_types_table, '_', Format::switch_tables}};

bool holds(std::string_view text, const Mark& mark) {
  const std::string quoted = '"' + std::string(mark.word) + '"';
  const size_t within = 1 + mark.word.find(mark.rare);
  for (size_t at = text.find(mark.rare, within); at != std::string_view::npos;
       at = text.find(mark.rare, at + 1))
    if (text.substr(at - within).starts_with(quoted)) return true;
  return false;
}

}  // namespace

Format guess_format(const std::string& text) {
  Format found = has_filter_table(text) ? Format::iptables : Format::guess;
  for (const Mark& mark : marks) {
    if (!holds(text, mark)) continue;
    if (found != Format::guess && found != mark.format) return Format::guess;
    found = mark.format;
  }
  return found;
}

Format format_of(const std::string& text, const std::string& file, Format wanted) {
  const Format format = wanted == Format::guess ? guess_format(text) : wanted;
  if (format != Format::guess) return format;
  std::string names;
  for (const FormatName& known : format_names)
    names += (names.empty() ? "--format " : " or --format ") + std::string(known.name);
  throw InputError({file, 0, ""}, "is in no format known here; say which with " + names);
}

ModelInput read_model(const std::string& text, const std::string& file, Format format,
                      const ReadOptions& options) {
  switch (format_of(text, file, format)) {
    case Format::rfc8519:
      return read_rfc8519(text, file, options);
    case Format::openconfig:
      return read_openconfig(text, file);
    case Format::iptables:
      return read_iptables(text, file, options);
    case Format::switch_tables:
      return read_switch_tables(text, file);
    default:
      throw InputError({file, 0, ""}, "holds nodes, not access lists; 'qimctl import' takes it");
  }
}

ModelText write_model(const Model& model, Format format, const std::vector<std::string>& names) {
  if (format == Format::nft) return nft::write_nft(model, names);
  return format == Format::openconfig ? write_openconfig(model, names)
                                      : write_rfc8519(model, names);
}

}  // namespace qimctl
