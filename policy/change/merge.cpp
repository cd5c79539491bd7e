// One model of several files.
#include <algorithm>
#include <map>
#include <unordered_map>

#include "policy/base/policy.h"
#include "policy/change/change.h"

namespace qimctl {

namespace {

class Merger {
 public:
  void add(Model model) {
    Stages last = stages_;
    for (AccessList& list : model.lists) add_list(std::move(list));
    for (Attachment& at : model.attachments) {
      // Lists of later files are asked behind those of earlier ones.
      uint32_t& stage = stages_[{at.interface, at.dir}];
      at.stage += last[{at.interface, at.dir}];
      stage = std::max(stage, at.stage);
      all_.attachments.push_back(std::move(at));
    }
    for (Policer& policer : model.policers) add_policer(std::move(policer));
  }

  Model take() {
    if (!problems_.empty()) throw InputError(std::move(problems_));
    return std::move(all_);
  }

 private:
  using Stages = std::map<std::pair<std::string, uint8_t>, uint32_t>;

  void add_list(AccessList list) {
    const auto [first, fresh] = lists_.emplace(list.name, list.place);
    if (fresh) {
      all_.lists.push_back(std::move(list));
      return;
    }
    problems_.push_back({list.place, "the access list \"" + list.name + "\" is defined at " +
                                         to_string(first->second) +
                                         ", too; an access list has one definition"});
  }

  void add_policer(Policer policer) {
    const auto [first, fresh] = policers_.emplace(policer.name, policer);
    if (fresh) {
      all_.policers.push_back(std::move(policer));
    } else if (!(first->second == policer)) {
      problems_.push_back(
          {{}, "the policer \"" + policer.name + "\" is defined differently in two files"});
    }
  }

  Model all_;
  Stages stages_;  // the last one at each interface and direction
  std::unordered_map<std::string, Place> lists_;
  std::unordered_map<std::string, Policer> policers_;
  std::vector<Problem> problems_;
};

}  // namespace

Model merge_models(std::vector<Model> models) {
  Merger merger;
  for (Model& model : models) merger.add(std::move(model));
  return merger.take();
}

}  // namespace qimctl
