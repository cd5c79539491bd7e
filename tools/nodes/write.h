// Writing policies while a terminal shows how far it is.
#pragma once

#include <string>
#include <vector>

#include "policy/store/store_policy.h"

namespace qimctl {

// Stands before a database is opened that is made when it is not there: unless kept, one that was
// made and still has no nodes is taken away again in the end.
class NewDatabase {
 public:
  // `given`: as in database_directory.
  explicit NewDatabase(const std::string& given);
  ~NewDatabase();
  NewDatabase(const NewDatabase&) = delete;
  NewDatabase& operator=(const NewDatabase&) = delete;
  void keep() { kept_ = true; }

 private:
  std::string directory_;
  bool kept_;
};

// As write_policies, which sees to options.stored here.
StoreCounts write_with_progress(const std::vector<Policy>& policies, const WriteSession& session,
                                StoreOptions options);

}  // namespace qimctl
