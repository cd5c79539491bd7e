#include "tests/system/fault/contents.h"

#include <vector>

#include "rov.h"
#include "rov_edit.h"

namespace fault {
namespace {

class Reader {
 public:
  explicit Reader(uint32_t ses) : ses_(ses) {}

  // False when something could not be read.
  bool read() {
    rov_node_id_t after = {};
    rov_node_parms_t parms;
    uint32_t status = rov_node_next(ses_, after, &parms);
    for (; status == ROV_OK; status = rov_node_next(ses_, after, &parms)) {
      if (!node(parms)) return false;
      after = parms.id;
    }
    return ends(status, ROV_ERR_NO_ITEM) && data_sets();
  }

  uint64_t digest() const { return digest_; }
  const std::string& message() const { return message_; }
  uint32_t status() const { return status_; }
  uint64_t nodes() const { return nodes_; }

 private:
  bool ends(uint32_t status, uint32_t expected) {
    if (status == expected) return true;
    status_ = status;
    message_ = std::string(rov_status_name(status)) + ": " + rov_err_message();
    return false;
  }

  void add(const void* data, size_t len) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    for (size_t i = 0; i < len; ++i) digest_ = (digest_ ^ bytes[i]) * 0x100000001b3;
  }
  void add(uint64_t number) { add(&number, sizeof number); }

  bool node(const rov_node_parms_t& parms) {
    std::vector<uint8_t> tlv(parms.tlv_len);
    std::vector<uint8_t> dset(parms.dset_len);
    std::vector<uint8_t> priv(parms.priv_len);
    const uint32_t status =
        rov_node_data_get(ses_, parms.id, parms.tlv_len, tlv.data(), parms.dset_len, dset.data(),
                          parms.priv_len, priv.data());
    if (!ends(status, ROV_OK)) return false;
    ++nodes_;
    add(parms.id.word, sizeof parms.id.word);
    add(parms.flags);
    for (const auto* part : {&tlv, &dset, &priv}) {
      add(part->size());
      add(part->data(), part->size());
    }
    return links(parms.id) && referrers(parms.id);
  }

  bool links(const rov_node_id_t& id) {
    rov_link_t link;
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; (status = rov_node_link_nth(ses_, id, n, &link)) == ROV_OK; ++n) {
      for (const uint64_t part : {uint64_t{link.field}, uint64_t{link.val}, uint64_t{link.tag}}) {
        add(part);
      }
      add(link.node.word, sizeof link.node.word);
      add(link.node2.word, sizeof link.node2.word);
    }
    return ends(status, ROV_ERR_NO_LINK);
  }

  bool referrers(const rov_node_id_t& id) {
    rov_node_id_t referrer;
    uint32_t field = 0;
    uint32_t total = 0;
    uint32_t n = 0;
    uint32_t status = ROV_OK;
    for (; (status = rov_node_ref_get(ses_, id, n, &total, &field, &referrer)) == ROV_OK; ++n) {
      add(field);
      add(referrer.word, sizeof referrer.word);
    }
    return ends(status, ROV_ERR_NO_ITEM);
  }

  bool data_sets() {
    rov_node_parms_t parms;
    uint32_t status = ROV_OK;
    for (uint32_t n = 0; (status = rov_ses_dset_get(ses_, n, &parms)) == ROV_OK; ++n) {
      add(parms.id.word, sizeof parms.id.word);
    }
    return ends(status, ROV_ERR_NO_ITEM);
  }

  uint32_t ses_;
  uint64_t digest_ = 0xcbf29ce484222325;
  std::string message_;
  uint32_t status_ = ROV_OK;
  uint64_t nodes_ = 0;
};

}  // namespace

Contents read_contents(uint32_t db) {
  Contents contents;
  uint32_t ses = 0;
  contents.status = rov_ses_open_ro(db, &ses);
  if (contents.status != ROV_OK) {
    contents.message = rov_err_message();
    return contents;
  }
  Reader reader(ses);
  contents.good = reader.read();
  contents.message = reader.message();
  contents.status = reader.status();
  contents.nodes = reader.nodes();
  contents.digest = reader.digest();
  rov_ses_close(ses);
  return contents;
}

}  // namespace fault
