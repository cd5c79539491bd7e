// Models of access lists for tests.
#include "tests/policy/lists_support.h"

#include <algorithm>
#include <map>
#include <sstream>

#include "policy/base/names.h"

namespace lists_test {

qimctl::Entry entry(const std::string& text) {
  std::istringstream words(text);
  qimctl::Entry made;
  made.forwarding = qimctl::ActionType::accept;
  words >> made.name;
  for (std::string word; words >> word;) {
    if (word == "drop") made.forwarding = qimctl::ActionType::drop;
    if (word == "reject") made.forwarding = qimctl::ActionType::reject;
    if (word == "log") made.log = true;
    if (word.starts_with("police=")) made.policer = word.substr(7);
    if (!word.starts_with("port=")) continue;
    const auto port = static_cast<uint16_t>(std::stoul(word.substr(5)));
    const auto high = static_cast<uint8_t>(port >> 8);
    const auto low = static_cast<uint8_t>(port & 0xff);
    made.criteria = {{0x050a, {1, high, low, high, low}}};
  }
  return made;
}

qimctl::AccessList list(const std::string& name, const std::vector<std::string>& entries) {
  qimctl::AccessList made;
  made.name = name;
  made.type = qimctl::acl_type_ipv4;
  for (const std::string& text : entries) made.entries.push_back(entry(text));
  return made;
}

std::vector<qimctl::Attachment> attachments(const std::vector<std::string>& all) {
  std::vector<qimctl::Attachment> made;
  std::map<std::string, uint32_t> stages;
  for (const std::string& text : all) {
    const size_t blank = text.find(' ');
    const size_t slash = text.rfind('/');
    qimctl::Attachment at;
    at.list = text.substr(0, blank);
    at.interface = text.substr(blank + 1, slash - blank - 1);
    at.dir = text.substr(slash + 1) == "in" ? uint8_t{QIM_DIR_IN} : qimctl::dir_out;
    at.stage = ++stages[text.substr(blank + 1)];
    made.push_back(at);
  }
  return made;
}

qimctl::Model model(std::vector<qimctl::AccessList> lists,
                    const std::vector<std::string>& attached) {
  qimctl::Model made;
  made.lists = std::move(lists);
  made.attachments = attachments(attached);
  return made;
}

std::string text_of(const qimctl::Model& model) {
  std::vector<std::string> lines;
  for (const qimctl::AccessList& list : model.lists) {
    std::string line = list.name + " type " + std::to_string(list.type) + " default " +
                       std::to_string(static_cast<uint32_t>(list.default_action)) + ":";
    for (const qimctl::Entry& entry : list.entries) {
      line += " [" + entry.name + " " + std::to_string(static_cast<uint32_t>(entry.forwarding)) +
              (entry.log ? " log" : "") + " " + entry.policer;
      for (const qimctl::Criterion& criterion : entry.criteria)
        line += " " + std::to_string(criterion.type) + "=" + qimctl::hex_bytes(criterion.args);
      line += "]";
    }
    lines.push_back(line);
  }
  for (const qimctl::Attachment& at : model.attachments)
    lines.push_back(attachment_text(at) + " " + std::to_string(at.stage) + " " + at.list);
  for (const qimctl::Policer& policer : model.policers) {
    lines.push_back("policer " + policer.name + " " + std::to_string(policer.committed_rate) + " " +
                    std::to_string(policer.committed_burst) + " " +
                    std::to_string(policer.peak_rate) + " " + std::to_string(policer.peak_burst) +
                    " " + std::to_string(static_cast<uint32_t>(policer.unit)));
  }
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

void store(const qimctl::Database& database, const std::vector<qimctl::Node>& nodes) {
  qimctl::WriteSession session(database);
  qimctl::write_policies({{nodes, {}}}, session, {.dangling = true});
  session.commit();
}

qimctl::StoredModel stored(const qimctl::Database& database) {
  return qimctl::read_stored_model(qimctl::ReadSession(database));
}

}  // namespace lists_test
