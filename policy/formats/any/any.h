// Files of whatever format.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "policy/model/model.h"
#include "policy/model/read_options.h"

namespace qimctl {

enum class Format { guess, native, rfc8519, openconfig, iptables, switch_tables, nft };

struct FormatName {
  std::string_view name;
  Format format;
};
inline constexpr std::array format_names{
    FormatName{"native", Format::native}, FormatName{"rfc8519", Format::rfc8519},
    FormatName{"openconfig", Format::openconfig}, FormatName{"iptables", Format::iptables},
    FormatName{"switch", Format::switch_tables}};

// Those that access lists are written in.
inline constexpr std::array written_formats{FormatName{"rfc8519", Format::rfc8519},
                                            FormatName{"openconfig", Format::openconfig},
                                            FormatName{"nft", Format::nft}};

// The format that a text claims to be of; Format::guess when it claims none, or several.
Format guess_format(const std::string& text);

// `wanted`, or what guess_format() says. Throws InputError when that is nothing.
Format format_of(const std::string& text, const std::string& file, Format wanted);

// Reads access lists; the native format, which holds nodes, is none that has them. Throws InputError.
ModelInput read_model(const std::string& text, const std::string& file, Format format,
                      const ReadOptions& options = {});

// Writes access lists: all that it is given, or those of these names.
ModelText write_model(const Model& model, Format format, const std::vector<std::string>& names);

}  // namespace qimctl
