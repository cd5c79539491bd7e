// What a device remembers, as lines "name = value".
#include "fleet/agent/records.h"

#include <algorithm>

#include "fleet/base/error.h"
#include "fleet/base/settings.h"

namespace qim::fleet {

namespace {

void add(std::string& text, const char* name, const std::string& value) {
  text += std::string(name) + " = " + value + "\n";
}

void add(std::string& text, const char* name, uint64_t value) {
  add(text, name, std::to_string(value));
}

void add(std::string& text, const SeenHead& seen) {
  add(text, "heads", seen.count);
  add(text, "head_sequence", seen.sequence);
  add(text, "head", to_hex(seen.bytes));
}

uint64_t number_of(Settings& settings, const char* name) {
  return settings.number(name, 0, UINT64_MAX, 0);
}

Digest digest_of(Settings& settings, const char* name) {
  Digest digest{};
  std::string bytes;
  if (from_hex(settings.text(name), bytes) && from_bytes(bytes, digest)) return digest;
  throw ConfigError(std::string(name) + " is no digest");
}

SeenHead seen_of(Settings& settings) {
  SeenHead seen;
  seen.count = number_of(settings, "heads");
  seen.sequence = number_of(settings, "head_sequence");
  seen.bytes = digest_of(settings, "head");
  return seen;
}

}  // namespace

std::string to_text(const Held& held) {
  std::string text;
  add(text, "scope", held.scope);
  add(text, "number", held.number);
  add(text, "state", to_hex(held.state));
  add(text, "previous", held.previous);
  add(text, "previous_state", to_hex(held.previous_state));
  add(text, "confirm_seconds", held.confirm_seconds);
  add(text, held.seen);
  return text;
}

std::string to_text(const Memory& memory) {
  std::string reason = memory.refused.reason;
  std::replace(reason.begin(), reason.end(), '\n', ' ');
  std::string text;
  add(text, "scope", memory.scope);
  add(text, "cluster", memory.cluster);
  add(text, memory.seen);
  add(text, "confirmed", memory.confirmed);
  add(text, "status_sequence", memory.status_sequence);
  add(text, "refused", memory.refused.number);
  add(text, "refused_state", to_hex(memory.refused.state));
  add(text, "reason", reason);
  return text;
}

Held parse_held(const std::string& text) {
  Settings settings = Settings::parse(text, "the mark");
  Held held;
  held.scope = settings.text("scope");
  held.number = number_of(settings, "number");
  held.state = digest_of(settings, "state");
  held.previous = number_of(settings, "previous");
  held.previous_state = digest_of(settings, "previous_state");
  held.confirm_seconds =
      static_cast<uint32_t>(settings.number("confirm_seconds", 0, UINT32_MAX, 0));
  held.seen = seen_of(settings);
  settings.require_good();
  return held;
}

Memory parse_memory(const std::string& text, const std::string& file) {
  Settings settings = Settings::parse(text, file);
  Memory memory;
  memory.scope = settings.text("scope");
  memory.cluster = number_of(settings, "cluster");
  memory.seen = seen_of(settings);
  memory.confirmed = number_of(settings, "confirmed");
  memory.status_sequence = number_of(settings, "status_sequence");
  memory.refused.number = number_of(settings, "refused");
  memory.refused.state = digest_of(settings, "refused_state");
  memory.refused.reason = settings.text("reason");
  settings.require_good();
  return memory;
}

}  // namespace qim::fleet
