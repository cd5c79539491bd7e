// What the kernel has counted of access lists.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace qimctl {

class EntryCounters {
 public:
  struct Count {
    uint64_t packets = 0;
    uint64_t bytes = 0;
  };

  // Of an entry, or with an empty name of what no entry matched; 0 of one that the kernel does not have.
  Count of(const std::string& list, const std::string& entry) const;

  void add(const std::string& key, const Count& count) { counts_[key] = count; }

 private:
  std::map<std::string, Count> counts_;
};

// Asks qim-enforce, which may have to be root for that. Throws OutputError when it is not there or fails.
EntryCounters read_counters();

}  // namespace qimctl
