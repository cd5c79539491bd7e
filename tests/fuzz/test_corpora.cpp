// The corpora of all targets, and variants of each input: in every preset, without a fuzzer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>

#include "tests/database/random.h"
#include "tests/fuzz/targets.h"
#include "tests/system/fault/scale.h"

namespace {

namespace fs = std::filesystem;
using testing_rov::Random;

using Bytes = std::vector<uint8_t>;

struct Target {
  const char* name;
  fuzz::Run run;
  bool examples;      // are inputs, too
  uint32_t variants;  // of each input
};

constexpr Target kTargets[] = {
    {"tlv", fuzz::tlv, false, 4000},
    {"dsetname", fuzz::dsetname, false, 1000},
    {"native", fuzz::native, true, 100},
    {"rfc8519", fuzz::rfc8519, true, 100},
    {"openconfig", fuzz::openconfig, true, 100},
    {"iptables", fuzz::iptables, true, 100},
    {"switch_tables", fuzz::switch_tables, true, 100},
    {"words", fuzz::words, false, 400},
    {"frame", fuzz::frame, false, 400},
    {"capture", fuzz::capture, false, 400},
    {"command", fuzz::command, false, 20},
    {"image", fuzz::image, false, 100},
    {"dump", fuzz::dump, false, 50},
};

fs::path source() {
  const char* path = getenv("QIM_SOURCE_DIR");
  return path == nullptr ? "." : path;
}

void collect(const fs::path& folder, std::vector<Bytes>* inputs) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  for (const fs::path& file : files) {
    std::ifstream stream(file, std::ios::binary);
    inputs->emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  }
}

// Some bytes changed, a piece cut out or doubled, or the end cut off.
Bytes varied(Bytes bytes, Random& random) {
  if (bytes.empty()) return {static_cast<uint8_t>(random())};
  const auto size = static_cast<uint32_t>(bytes.size());
  const auto at = bytes.begin() + random.below(size);
  const auto piece = at + random.below(std::min(16U, static_cast<uint32_t>(bytes.end() - at)));
  switch (random.below(4)) {
    case 0:
      bytes.erase(at, piece);
      return bytes;
    case 1: {
      const Bytes copy(at, piece);
      bytes.insert(piece, copy.begin(), copy.end());
      return bytes;
    }
    case 2:
      bytes.resize(random.below(size));
      return bytes;
    default:
      for (uint32_t n = 1 + random.below(4); n > 0; --n) {
        constexpr uint8_t kTelling[] = {0, 1, 2, 0x7f, 0x80, 0xff, '"', '{', '[', '-', '9', '\n'};
        bytes[random.below(size)] = random.below(2) == 0
                                        ? kTelling[random.below(std::size(kTelling))]
                                        : static_cast<uint8_t>(random());
      }
      return bytes;
  }
}

// What the tool prints is of no interest here.
class Silence {
 public:
  Silence() : out_(dup(STDOUT_FILENO)), err_(dup(STDERR_FILENO)) {
    fflush(nullptr);
    const int nowhere = open("/dev/null", O_WRONLY);
    dup2(nowhere, STDOUT_FILENO);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
  }
  ~Silence() {
    fflush(nullptr);
    dup2(out_, STDOUT_FILENO);
    dup2(err_, STDERR_FILENO);
    close(out_);
    close(err_);
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  int out_;
  int err_;
};

class Corpora : public testing::TestWithParam<Target> {};

TEST_P(Corpora, KeepTheirPromises) {
  const Target& target = GetParam();
  std::vector<Bytes> inputs;
  collect(source() / "tests/fuzz/corpus" / target.name, &inputs);
  if (target.examples) collect(source() / "examples", &inputs);
  ASSERT_GT(inputs.size(), 4U);
  const uint32_t seed = fault::seed_or(50);
  const uint32_t variants = fault::scaled(target.variants, 2);
  fault::announce(target.name, seed, static_cast<uint32_t>(inputs.size()) * (variants + 1),
                  "inputs");
  Random random(seed);
  // The last input before the process ends is the one that breaks a promise.
  const bool loud = getenv("QIM_LOUD") != nullptr;
  const auto silence = loud ? nullptr : std::make_unique<Silence>();
  for (const Bytes& input : inputs) {
    target.run(input.data(), input.size());
    for (uint32_t n = 0; n < variants; ++n) {
      Bytes bytes = varied(input, random);
      if (random.below(4) == 0) bytes = varied(std::move(bytes), random);
      target.run(bytes.data(), bytes.size());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, Corpora, testing::ValuesIn(kTargets),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace
