// `qimctl dump`: a whole database as one file.
#include "tools/commands/dump.h"

#include <string>
#include <utility>

#include "policy/formats/native/native.h"
#include "policy/formats/native/node_form.h"
#include "policy/store/node_image.h"
#include "rov_edit.h"
#include "tools/base/output.h"

namespace qimctl {

namespace {

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
      : session_(session), form_(session), all_(stored) {}

  void write() {
    std::string& text = output_.buffer();
    text = "{\"$schema\":\"" + std::string(native_schema_name) + "\",\"format\":\"" +
           native_format_name + "\",\"version\":1,\"nodes\":[\n";
    const char* separator = "";
    Stored dumped;
    each_node(session_.handle(), [&](const rov_node_parms_t& parms) {
      text += std::exchange(separator, ",\n");
      form_.append(text, parms);
      output_.flush_when_full();
      dumped.add(session_.handle(), parms.id);
    });
    require_all_nodes(all_, dumped);
    text += "\n],\n";
    output_.flush();
    print("\"checksum\":\"" + output_.checksum() + "\"}\n");
  }

 private:
  const ReadSession& session_;
  NodeForm form_;
  Stored all_;
  CheckedOutput output_;
};

}  // namespace

// The database is verified, and then all of that is read, or the dump lacks its end.
void dump_database(const Database& database) {
  ReadSession session(database);
  const Stored stored = session.verify();
  Dump(session, stored).write();
}

}  // namespace qimctl
