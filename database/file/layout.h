// Where things lie in the storage engine's file, for reading it without the engine.
//
//   page 0, 1      the two meta pages: commit N is described by page N % 2
//   other pages    number:W pad:2 flags:2, then
//     tree page    lower:2 upper:2  entry offset:2 ...  free  entries up to the page's end
//     overflow     pages:4  data over that many pages
//
//   entry          size:4 (on branch pages with the flags the child's page number) flags:2
//                  key length:2  key  data
//   tree           pad:4 flags:2 depth:2 branch pages:W leaf pages:W overflow pages:W entries:W
//   root:W meta           magic:4 version:4 address:W map size:W  tree of free pages  tree of
//   tables
//                  last page:W commit:W
//
// W is the word of the process that wrote the file, numbers are in its byte order; the format file
// has told before that both are this process's own. The pad of the first tree is the page size.
#pragma once

#include <cstddef>
#include <cstdint>

#include "database/base/bytes.h"

namespace rov {

using Word = size_t;

constexpr uint32_t kWord = sizeof(Word);
constexpr uint32_t kPageHead = kWord + 8;
constexpr uint32_t kEntryHead = 8;
constexpr uint32_t kTreeBytes = 8 + 5 * kWord;
constexpr uint32_t kMetaBytes = 8 + 4 * kWord + 2 * kTreeBytes;
constexpr uint32_t kMetaPages = 2;

constexpr uint32_t kMagic = 0xBEEFC0DE;
constexpr uint32_t kEngineVersion = 1;
constexpr uint32_t kLeastPage = 512;
constexpr uint32_t kLargestPage = 0x8000;
constexpr uint32_t kMaxDepth = 32;
constexpr Word kNoPage = ~Word{0};  // the root of an empty tree

constexpr uint16_t kBranchPage = 0x01;
constexpr uint16_t kLeafPage = 0x02;
constexpr uint16_t kOverflowPage = 0x04;
constexpr uint16_t kMetaPage = 0x08;

constexpr uint16_t kOnOverflow = 0x01;   // of an entry: the data is the number of an overflow page
constexpr uint16_t kIsTree = 0x02;       // the data is a tree
constexpr uint16_t kIntegerKeys = 0x08;  // of a tree

// What describes one tree.
struct Tree {
  uint32_t pad = 0;
  uint16_t flags = 0;
  uint16_t depth = 0;
  Word branches = 0;
  Word leaves = 0;
  Word overflows = 0;
  Word entries = 0;
  Word root = kNoPage;

  bool operator==(const Tree&) const = default;
};

inline Tree read_tree(const uint8_t* at) {
  const uint8_t* words = at + 8;
  return {load<uint32_t>(at),
          load<uint16_t>(at + 4),
          load<uint16_t>(at + 6),
          load<Word>(words),
          load<Word>(words + kWord),
          load<Word>(words + size_t{2} * kWord),
          load<Word>(words + size_t{3} * kWord),
          load<Word>(words + size_t{4} * kWord)};
}

struct Meta {
  uint32_t magic = 0;
  uint32_t version = 0;
  Word map_size = 0;
  Tree free;
  Tree tables;
  Word last_page = 0;
  Word revision = 0;
};

inline Meta read_meta(const uint8_t* at) {
  const uint8_t* trees = at + 8 + size_t{2} * kWord;
  const uint8_t* end = trees + size_t{2} * kTreeBytes;
  return {load<uint32_t>(at),     load<uint32_t>(at + 4),        load<Word>(at + 8 + kWord),
          read_tree(trees),       read_tree(trees + kTreeBytes), load<Word>(end),
          load<Word>(end + kWord)};
}

inline Word page_number(const uint8_t* page) {
  return load<Word>(page);
}
inline uint16_t page_flags(const uint8_t* page) {
  return load<uint16_t>(page + kWord + 2);
}
[[nodiscard]] inline uint32_t page_lower(const uint8_t* page) {
  return load<uint16_t>(page + kWord + 4);
}
[[nodiscard]] inline uint32_t page_upper(const uint8_t* page) {
  return load<uint16_t>(page + kWord + 6);
}
[[nodiscard]] inline uint32_t overflow_pages(const uint8_t* page) {
  return load<uint32_t>(page + kWord + 4);
}

// One entry of a tree page, somewhere in its page.
struct Entry {
  uint32_t size;  // of the data, wherever it lies
  uint16_t flags;
  Bytes key;
  const uint8_t* data;
  Word child;
};

[[nodiscard]] inline uint32_t entry_offset(const uint8_t* page, uint32_t index) {
  return load<uint16_t>(page + kPageHead + size_t{2} * index);
}
inline Entry read_entry(const uint8_t* at) {
  const auto size = load<uint32_t>(at);
  const auto flags = load<uint16_t>(at + 4);
  const auto key_len = load<uint16_t>(at + 6);
  Word child = size;
  if constexpr (kWord > 4) child |= static_cast<Word>(uint64_t{flags} << 32);
  return {size, flags, {at + kEntryHead, key_len}, at + kEntryHead + key_len, child};
}
// Bytes that an entry takes in its page. Wider than the page's offsets, for damage knows no limits.
[[nodiscard]] inline uint64_t entry_bytes(const Entry& entry, bool leaf) {
  uint64_t bytes = uint64_t{kEntryHead} + entry.key.len;
  if (leaf) bytes += (entry.flags & kOnOverflow) != 0 ? uint64_t{kWord} : uint64_t{entry.size};
  return (bytes + 1) & ~uint64_t{1};
}
// Whether a file of that length can have so many pages. What is beyond its end is free, and the list
// of free pages is in the file.
inline bool can_have_pages(uint64_t bytes, uint32_t page_size, Word last_page) {
  return last_page <= bytes / page_size + bytes / kWord;
}
// Pages that an overflow value of so many bytes needs.
inline uint64_t pages_for(uint64_t size, uint32_t page_size) {
  return (kPageHead - 1 + size) / page_size + 1;
}

}  // namespace rov
