// Telling formats apart, and asking the one that a file is in.
#include "policy/formats/any/any.h"

#include "policy/formats/native/native.h"
#include "policy/formats/rfc8519/rfc8519.h"

namespace qimctl {

Format guess_format(const std::string& text) {
  const bool native = text.find('"' + std::string(native_format_name) + '"') != text.npos;
  const bool rfc8519 = text.find('"' + std::string(rfc8519_root) + '"') != text.npos;
  if (native == rfc8519) return Format::guess;
  return native ? Format::native : Format::rfc8519;
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
    default:
      throw InputError({file, 0, ""}, "holds nodes, not access lists; 'qimctl import' takes it");
  }
}

ModelText write_model(const Model& model, Format, const std::vector<std::string>& names) {
  return write_rfc8519(model, names);
}

}  // namespace qimctl
