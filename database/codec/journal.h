// What a decode allocated, so that it can be given back or added up.
//
// A decoded record owns memory that only its callbacks can reach. Where the codec itself makes the
// record, nobody else could free what a failed decode leaves; and how much memory a decoded record
// takes is known to nobody but who allocates it. The helpers of field callbacks therefore enter
// their blocks here while a Journal lives on the thread.
#ifndef DATABASE_CODEC_JOURNAL_H
#define DATABASE_CODEC_JOURNAL_H

#include <cstdint>

namespace tlv {

class Journal {
 public:
  Journal();
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // Gives back the blocks that were entered since this journal began.
  void undo();
  // Bytes of those blocks.
  uint64_t bytes() const;

  // Whether there is a journal on the thread.
  static bool is_kept() { return journals_ != 0; }
  // Makes room for one more entry, so that enter() can't fail. False when there is no memory. Does
  // nothing on a thread without a journal.
  static bool reserve() { return journals_ == 0 || reserve_one(); }
  static void enter(void* block, uint32_t size) {
    if (journals_ != 0) enter_one(block, size);
  }

 private:
  static bool reserve_one();
  static void enter_one(void* block, uint32_t size);

  // Those of the thread lie within one another.
  static constinit thread_local uint32_t journals_ __attribute__((tls_model("initial-exec")));
  uint32_t begin_;
};

}  // namespace tlv

#endif
