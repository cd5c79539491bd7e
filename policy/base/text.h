// Text that is safe to print.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace qimctl {

// `text` with every control character, backslash and byte that is not UTF-8 escaped as \xNN, and
// every character that changes how others are shown or that shows nothing (bidirectional controls,
// zero-width characters, separators of lines) as \u{N}, so that what was stored can neither drive a
// terminal nor look like something else.
std::string printable(const std::string& text);
// The same with backslashes as they are: of messages, in which names stand that are escaped already.
std::string harmless(const std::string& text);
// As printable, in double quotes, with those in the text escaped as \x22: what is outside the quotes was
// not in the text.
std::string quoted(const std::string& text);
// The same without the quotes around it: of names that stand alone.
std::string bare_name(const std::string& text);
// A document in JSON or YAML, in sound UTF-8, with those characters of its texts that \uNNNN can say
// written so, which means the same to whoever parses it. Texts that have any stand in double quotes.
std::string with_escapes(std::string document);
// Is it sound UTF-8 (RFC 3629)?
bool is_utf8(std::string_view text);
// Could these bytes be meant as text? Sound UTF-8 without byte 0, and not mostly control characters.
bool reads_as_text(const std::string& bytes);
// What stands before, between and behind the commas: one part more than there are of them.
std::vector<std::string> split_at_commas(const std::string& text);
// The pieces of one text.
std::string joined(const std::vector<std::string>& pieces);

}  // namespace qimctl
