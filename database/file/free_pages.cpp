#include "database/file/free_pages.h"

#include "rov.h"

namespace rov {

uint32_t FreeCheck::visit(const Place& place, Bytes key, Bytes value) {
  const Word commit = load<Word>(key.data);
  if (commit == 0 || commit > revision_) {
    return pages_.damaged(place.page,
                          "entry %u lists free pages of commit %llu, which is not there",
                          place.index, static_cast<unsigned long long>(commit));
  }
  newest_ = commit;
  // A word that counts, then the pages, the highest first. What follows is room that was not
  // needed.
  const uint32_t room = value.len / kWord;
  const Word count = room == 0 ? 0 : load<Word>(value.data);
  if (room == 0 || value.len % kWord != 0 || count >= room) {
    return pages_.damaged(place.page, "entry %u, a list of free pages, contradicts itself",
                          place.index);
  }
  Word above = kNoPage;
  for (Word i = 1; i <= count; ++i) {
    const Word page = load<Word>(value.data + i * kWord);
    if (page >= above) {
      return pages_.damaged(place.page, "entry %u lists free pages out of order", place.index);
    }
    const uint32_t status = pages_.claim(page, 1, place.page, "the list of free pages");
    if (status != ROV_OK) return status;
    above = page;
  }
  count_ += count;
  return ROV_OK;
}

uint32_t FreeCheck::check_newest(Word meta) const {
  if (newest_ == 0 || newest_ == revision_) return ROV_OK;
  return pages_.damaged(meta, "it says commit %llu, its list of free pages commit %llu",
                        static_cast<unsigned long long>(revision_),
                        static_cast<unsigned long long>(newest_));
}

}  // namespace rov
