// `qimctl dump`: a whole database as one file.
#include "tools/commands/dump.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "policy/base/dsetname.h"
#include "policy/base/json_text.h"
#include "policy/base/names.h"
#include "policy/base/policy_check.h"
#include "policy/formats/native/native.h"
#include "policy/formats/native/node_text.h"
#include "policy/store/node_image.h"
#include "policy/store/store_policy.h"
#include "policy/store/stored_node.h"
#include "rov_edit.h"
#include "schema/rows.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

// Would this text give back the node byte for byte?
bool is_faithful(const std::string& text, const StoredNode& stored) {
  std::vector<Policy> policies(1);
  policies.front().nodes.push_back(read_native_node(parse_json(text, "").view()));
  const Node& same = policies.front().nodes.front();
  const bool named = same.dset.has_value();
  const bool dset_equal =
      stored.dset.size() == (named ? sizeof(*same.dset) : 0) &&
      // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): packed, so every byte counts
      (!named || memcmp(&*same.dset, stored.dset.data(), sizeof(*same.dset)) == 0);
  return dset_equal && database_flags(same) == stored.flags && encode_node(same) == stored.tlv &&
         check_policies(policies).empty();
}

// The same of a node whose type has no names: its text says all that is encoded of a record, so
// the record is encoded in place of what would be read.
class RecordCheck {
 public:
  bool is_faithful(const qim_node_t& record, const StoredNode& stored) {
    return stored.flags == 0 && is_encoded_as(record, stored.tlv);
  }

 private:
  bool is_encoded_as(const qim_node_t& record, const std::vector<uint8_t>& tlv) {
    const uint32_t room = qim_node_get_tlv_sz(&record);
    if (room == UINT32_MAX) return false;
    tlv_.resize(std::max<size_t>(tlv_.size(), room));
    uint32_t length = 0;
    return qim_node_to_tlv(&record, tlv_.data(), room, &length, nullptr, 0) == ROV_OK &&
           length == tlv.size() && std::equal(tlv.begin(), tlv.end(), tlv_.begin());
  }

  std::vector<uint8_t> tlv_;
};

// Prints large pieces, and sums up what was printed.
class CheckedOutput {
 public:
  std::string& buffer() { return buffer_; }
  void flush_when_full() {
    if (buffer_.size() >= enough) flush();
  }
  void flush() {
    checksum_ = rov_crc32c(checksum_, buffer_.data(), static_cast<uint32_t>(buffer_.size()));
    print(buffer_);
    buffer_.clear();
  }
  std::string checksum() const { return checksum_digits(checksum_); }

 private:
  static constexpr size_t enough = 64 * size_t{1024};
  std::string buffer_;
  uint32_t checksum_ = 0;
};

class Dump {
 public:
  // stored: what there is.
  Dump(const ReadSession& session, const Stored& stored)
      : session_(session), reader_(session), all_(stored) {}

  void write() {
    std::string& text = output_.buffer();
    text = "{\"format\":\"" + std::string(native_format_name) + "\",\"version\":1,\"nodes\":[\n";
    const char* separator = "";
    Stored dumped;
    each_node(session_.handle(), [&](const rov_node_parms_t& parms) {
      text += std::exchange(separator, ",\n");
      add(parms);
      output_.flush_when_full();
      dumped.add(session_.handle(), parms.id);
    });
    require_all_nodes(all_, dumped);
    text += "\n],\n";
    output_.flush();
    print("\"checksum\":\"" + output_.checksum() + "\"}\n");
  }

 private:
  void add(const rov_node_parms_t& parms) {
    reader_.read(parms, stored_);
    std::string& text = output_.buffer();
    const size_t begin = text.size();
    if (add_record_form(parms)) return;
    text.resize(begin);
    append_raw_form(text, stored_);
  }

  // The node in terms of its record; false when that says less or something else.
  bool add_record_form(const rov_node_parms_t& parms) {
    qim_node_t* node = nullptr;
    const uint32_t status =
        qim_int_node_open(session_.handle(), stored_.number(), &parms, 0, &node, qim_lib_get());
    if (is_about_contents(status)) return false;
    if (status != ROV_OK) require(status, "read node " + node_id_text(stored_.number()));
    const auto close = [](qim_node_t* open) { qim_int_node_close(open, qim_lib_get()); };
    const std::unique_ptr<qim_node_t, decltype(close)> owned(node, close);
    std::string& text = output_.buffer();
    const size_t begin = text.size();
    const qim::schema::NodeType* type = qim::schema::tlv_type(node->type);
    if (type != nullptr && type->naming == qim::schema::Naming::never) {
      append_record_form(text, *node, "", stored_);
      return stored_.dset.empty() && check_.is_faithful(*node, stored_);
    }
    const std::string name =
        has_dset(*node) ? dset_to_json(name_of(node->body.pinst.fields)).dump() : "";
    append_record_form(text, *node, name, stored_);
    return is_faithful(text.substr(begin), stored_);
  }

  const ReadSession& session_;
  StoredNodeReader reader_;
  Stored all_;
  StoredNode stored_;
  CheckedOutput output_;
  RecordCheck check_;
};

}  // namespace

// The database is verified, and then all of that is read, or the dump lacks its end.
void dump_database(const Database& database) {
  ReadSession session(database);
  const Stored stored = session.verify();
  Dump(session, stored).write();
}

}  // namespace qimctl
