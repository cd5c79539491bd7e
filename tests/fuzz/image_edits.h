// Damage to a database's data file, described by a few bytes.
//
// The bytes are edits, one after the other, each beginning with what it is. Numbers in them are
// little-endian; what goes into the file as a number goes there in this machine's order and word
// size, so that the same bytes do the same kind of damage on every machine. Pages, records, fields
// and offsets are taken modulo what there is. A field's value is added to what was there when the
// field has its bit 7 set.
//
//   0  bytes     page:1 offset:2 count:1, the bytes
//   1  number    page:1 offset:2 width:1 (2, 4 or a word), value:4 with its sign
//   2  copy      page:1 to page:1
//   3  exchange  page:1 with page:1
//   4  cut       pages:1 bytes:2
//   5  record    record:2 offset:2 count:1, the bytes; the record gets the checksum that it needs
//   6  field     record:2 offset:2 value:4; the same
//   7  mend      gives all records where they were the checksums that they need
//   8  tree      tree:1 field:1 value:4: what describes a tree (verify_layout.h)
//   9  head      page:1 field:1 value:4: number, flags, lower, upper, pages
//  10  entry     page:1 entry:1 field:1 value:4: where it begins, size, flags, key length, first word
//                of the key and of the data
//  11  take      page:1 entry:1; takes it out of its page as the engine would, and counts no other
#ifndef TESTS_FUZZ_IMAGE_EDITS_H
#define TESTS_FUZZ_IMAGE_EDITS_H

#include <cstdint>
#include <vector>

#include "database/file/layout.h"
#include "database/store/overlay.h"

namespace fuzz {

using Image = std::vector<uint8_t>;

// Where a record stands in a good file.
struct RecordPlace {
  rov::Table table;
  rov::Word page;
  uint32_t index;  // of the entry in its page
};

// What a good file is made of.
struct Anatomy {
  uint32_t page_size = 0;
  std::vector<size_t> trees;  // where the newest commit's trees are described
  std::vector<RecordPlace> records;
};

// What was done to an image.
struct Damage {
  uint32_t edits = 0;
  bool mended = false;  // checksums were made to fit
};

// Does to the image what the bytes say.
Damage apply_edits(const uint8_t* bytes, size_t size, const Anatomy& anatomy, Image* image);

}  // namespace fuzz

#endif
