#include "tests/system/fault/edits.h"

#include "rov.h"
#include "rov_edit.h"
#include "tests/database/database_fixture.h"

namespace fault {
namespace {

using testing_rov::id;
using testing_rov::name;
using testing_rov::pattern;
using testing_rov::put_link;
using testing_rov::put_node;

// Nodes with an even number up to this one lead to the hub, which fill several chunks.
constexpr uint32_t kOwners = 800;
constexpr uint32_t kHub = 5000;
// As many nodes lead here as fill a chunk and begin another one.
constexpr uint32_t kFewer = 6000;
constexpr uint32_t kFewerOwners = 2 * (rov::kChunkMax + 1);
constexpr uint32_t kAbsent = 9000;  // a node to which links lead that is not there

// Does things one after the other until one of them fails.
class Chain {
 public:
  template <typename Do>
  Chain& then(Do something) {
    if (status_ == ROV_OK) status_ = something();
    return *this;
  }
  Chain& node(uint32_t ses, uint32_t node, size_t bytes, const char* set = nullptr) {
    const testing_rov::Bytes dset = set == nullptr ? testing_rov::Bytes() : name(set);
    return then([&] { return put_node(ses, node, pattern(node, bytes), dset); });
  }
  Chain& link(uint32_t ses, uint32_t owner, uint16_t field, uint32_t node, uint32_t node2 = 0) {
    return then([&] { return put_link(ses, owner, field, node, node2); });
  }
  Chain& keep(uint32_t ses, uint32_t node, uint32_t client, uint32_t bytes) {
    const testing_rov::Bytes data = pattern(client, bytes);
    return then([&] { return rov_edit_priv_put(ses, id(node), client, data.data(), bytes); });
  }
  uint32_t status() const { return status_; }

 private:
  uint32_t status_ = ROV_OK;
};

uint32_t prepare(uint32_t ses) {
  Chain chain;
  chain.node(ses, kHub, 20).node(ses, kFewer, 20);
  for (uint32_t owner = 2; owner <= kOwners; owner += 2) {
    chain.node(ses, owner, 8).link(ses, owner, 10, kHub);
    if (owner <= kFewerOwners) chain.link(ses, owner, 20, kFewer);
  }
  chain.node(ses, 10, 30, "a").keep(ses, 10, 1, 40).keep(ses, 10, 2, 40).keep(ses, 10, 3, 40);
  chain.link(ses, 6, 15, kHub).link(ses, 20, 30, kAbsent).link(ses, 30, 31, 32, 34);
  return chain.status();
}

// ---- Nodes ----

uint32_t new_node(uint32_t ses) {
  return Chain().node(ses, 7000, 100, "new").node(ses, 7001, 0).status();
}

uint32_t node_that_links_lead_to(uint32_t ses) {
  return Chain().node(ses, kAbsent, 9).status();
}

uint32_t other_contents(uint32_t ses) {
  return Chain().node(ses, 12, 500).node(ses, 12, 600).status();
}

uint32_t other_name(uint32_t ses) {
  return Chain().node(ses, 10, 30, "b").status();
}

uint32_t no_name(uint32_t ses) {
  return Chain().node(ses, 10, 30).status();
}

uint32_t name_again(uint32_t ses) {
  return Chain().node(ses, 10, 30, "c").status();
}

uint32_t deleted_node(uint32_t ses) {
  return rov_edit_node_del(ses, id(10));
}

uint32_t deleted_hub(uint32_t ses) {
  return rov_edit_node_del(ses, id(kHub));
}

// ---- Links ----

uint32_t link_that_splits_a_chunk(uint32_t ses) {
  return Chain().node(ses, 41, 8).link(ses, 41, 10, kHub).status();
}

uint32_t link_behind_all(uint32_t ses) {
  return Chain().node(ses, 4000, 8).link(ses, 4000, 10, kHub).status();
}

uint32_t link_behind_a_full_chunk(uint32_t ses) {
  Chain chain;
  for (uint32_t owner = 1000; owner < 1000 + rov::kChunkMax + 1; ++owner) {
    chain.node(ses, owner, 0).link(ses, owner, 1, 100);
  }
  return chain.status();
}

uint32_t lower_field(uint32_t ses) {
  return Chain().link(ses, 8, 5, kHub).status();
}

uint32_t higher_field(uint32_t ses) {
  return Chain().link(ses, 8, 50, kHub).status();
}

uint32_t other_target(uint32_t ses) {
  return Chain().link(ses, 44, 10, 46, 48).link(ses, 44, 10, 48).status();
}

uint32_t lower_link_goes(uint32_t ses) {
  return rov_edit_link_del(ses, id(6), 10);
}

uint32_t only_link_goes(uint32_t ses) {
  return rov_edit_link_del(ses, id(30), 31);
}

uint32_t last_chunk_goes(uint32_t ses) {
  return rov_edit_link_del(ses, id(kFewerOwners), 20);
}

uint32_t first_chunk_goes(uint32_t ses) {
  Chain chain;
  chain.link(ses, kFewerOwners, 20, kFewer);
  for (uint32_t owner = 2; owner <= kFewerOwners; owner += 2) {
    chain.then([&] { return rov_edit_link_del(ses, id(owner), 20); });
  }
  return chain.status();
}

// ---- What clients keep ----

uint32_t private_data(uint32_t ses) {
  return Chain().keep(ses, 14, 1, 10).keep(ses, 14, 1, 20).keep(ses, 14, 1, 0).status();
}

uint32_t mark(uint32_t ses) {
  return Chain()
      .then([&] { return rov_edit_mark_put(ses, "a", "first", 5); })
      .then([&] { return rov_edit_mark_put(ses, "a", "second", 6); })
      .then([&] { return rov_edit_mark_put(ses, "b", "third", 5); })
      .then([&] { return rov_edit_mark_put(ses, "b", nullptr, 0); })
      .status();
}

}  // namespace

uint32_t prepare_for_edits(uint32_t db) {
  uint32_t ses = 0;
  uint32_t status = rov_edit_begin(db, &ses);
  if (status == ROV_OK) status = prepare(ses);
  return status == ROV_OK ? rov_edit_commit(ses) : status;
}

const std::vector<Edit>& all_edits() {
  static const std::vector<Edit> all = {
      {"a new node", new_node},
      {"a node that links lead to already", node_that_links_lead_to},
      {"a node with other contents", other_contents},
      {"a node with another name", other_name},
      {"a node without its name", no_name},
      {"a node with a name again", name_again},
      {"a link that splits a chunk", link_that_splits_a_chunk},
      {"a link behind all others", link_behind_all},
      {"a link behind a full chunk", link_behind_a_full_chunk},
      {"another link with a lower field", lower_field},
      {"another link with a higher field", higher_field},
      {"a link that leads elsewhere", other_target},
      {"the lower one of two links goes", lower_link_goes},
      {"the only link goes", only_link_goes},
      {"the last of two chunks goes", last_chunk_goes},
      {"private data", private_data},
      {"marks", mark},
      {"the first of two chunks goes", first_chunk_goes},
      {"a node goes", deleted_node},
      {"a node goes that many lead to", deleted_hub},
  };
  return all;
}

}  // namespace fault
