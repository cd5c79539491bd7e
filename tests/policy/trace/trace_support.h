// What tests of traces share.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "policy/base/names.h"
#include "policy/formats/rfc8519/rfc8519.h"
#include "policy/trace/evaluate.h"
#include "policy/trace/packet_bytes.h"
#include "policy/trace/packet_words.h"

namespace trace_test {

// A model of lists given as members of "acls".
inline qimctl::Model model_of(const std::string& members) {
  return qimctl::read_rfc8519("{\"ietf-access-control-list:acls\":{" + members + "}}", "test")
      .model;
}

// An entry: {"name", "matches", "actions"}.
inline std::string entry(const std::string& name, const std::string& matches,
                         const std::string& action) {
  return R"({"name":")" + name + R"(","matches":{)" + matches + R"(},"actions":{"forwarding":")" +
         action + R"("}})";
}

inline std::string list(const std::string& name, const std::string& entries) {
  return R"({"name":")" + name + R"(","type":"mixed-eth-ipv4-ipv6-acl-type","aces":{"ace":[)" +
         entries + "]}}";
}

// "frame HEX", or words.
inline qimctl::Packet packet_of(const std::string& text) {
  constexpr std::string_view frame = "frame ";
  if (!text.starts_with(frame)) return qimctl::packet_from_words(text);
  const auto bytes = qimctl::bytes_from_hex(text.substr(frame.size()));
  EXPECT_TRUE(bytes.has_value()) << text;
  return qimctl::packet_from_bytes(*bytes, qimctl::FrameKind::ethernet);
}

}  // namespace trace_test
