// A database whose data file is damaged by the target `image`.
#ifndef TESTS_FUZZ_GOOD_IMAGE_H
#define TESTS_FUZZ_GOOD_IMAGE_H

#include <string>
#include <vector>

#include "database/file/pages.h"
#include "tests/fuzz/image_edits.h"
#include "tests/fuzz/place.h"
#include "tests/system/fault/contents.h"

namespace fuzz {

// Has trees of several levels, a value on pages of its own, free pages, and records in every table.
class GoodImage {
 public:
  GoodImage();

  // The whole database as it was made, but with that data file.
  void place(const Image& image) const;

  std::string directory() const { return place_.path() / "db"; }
  const Image& image() const { return files_.front().second; }
  const Anatomy& anatomy() const { return anatomy_; }
  const fault::Contents& contents() const { return contents_; }

 private:
  void fill();
  void dissect();
  void dissect_table(uint32_t table, const rov::Meta& meta, rov::Pages& pages);

  Place place_;
  std::vector<std::pair<std::string, Image>> files_;
  Anatomy anatomy_;
  fault::Contents contents_;
};

}  // namespace fuzz

#endif
