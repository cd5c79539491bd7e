// Verdicts against those of an evaluator that shares nothing with ours, not even the language.
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "policy/trace/classifier.h"
#include "tests/policy/trace/trace_support.h"
#include "tests/support/pace.h"
#include "tests/tools/support.h"

namespace {

using namespace qimctl;
using namespace trace_test;

struct Question {
  std::string where;
  std::string packet;
  std::string action;
  std::string decider;
};

// So many packets, fewer where each takes long.
int paced_count(int count) {
  const bool slow = pace::emulated() || pace::kSanitized || getenv("QIM_COUNTED") != nullptr;
  return slow ? count / 25 : count;
}

// What the evaluator prints.
std::string run_evaluator(const std::string& arguments) {
  const tools_test::TempDir dir;
  const std::string out = (dir / "out").string();
  const std::string script =
      (tools_test::source_dir() / "tests/policy/trace/trace_evaluator.py").string();
  EXPECT_EQ(std::system(("python3 " + script + " " + arguments + " >" + out).c_str()), 0);
  return tools_test::read_text(out);
}

std::vector<Question> questions(const std::string& file, int seed, int count) {
  std::istringstream lines(
      run_evaluator("packets " + file + " " + std::to_string(seed) + " " + std::to_string(count)));
  std::vector<Question> all;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream cells(line);
    Question question;
    std::getline(cells, question.where, '\t');
    std::getline(cells, question.packet, '\t');
    std::getline(cells, question.action, '\t');
    std::getline(cells, question.decider, '\t');
    all.push_back(question);
  }
  EXPECT_EQ(all.size(), static_cast<size_t>(count));
  return all;
}

// The lists that a question is put to, ready to be asked, and by which interface the packet comes.
struct Place {
  std::string ingress;
  std::string egress;
  std::unique_ptr<Tracer> tracer;
  std::unique_ptr<Classifier> classifier;
};

Place make_place(std::string ingress, std::string egress, const Lists& lists) {
  Place place{std::move(ingress), std::move(egress), std::make_unique<Tracer>(lists), nullptr};
  place.classifier = std::make_unique<Classifier>(*place.tracer);
  return place;
}

Place place_of(const Model& model, const std::string& where) {
  if (!where.starts_with("if:")) return make_place("", "", Lists{find_list(model, where)});
  const size_t slash = where.rfind('/');
  const std::string interface = where.substr(3, slash - 3);
  const bool in = where.substr(slash + 1) == "in";
  return make_place(in ? interface : "", in ? "" : interface,
                    lists_at(model, interface, in ? uint8_t{QIM_DIR_IN} : dir_out));
}

// "accept LIST/ENTRY" of the packet's only outcome. Lists on their own are asked without saying
// whence the packet came, and then an entry that asks for that is no match for the evaluator.
std::string verdict(const Place& place, Packet packet, bool one_by_one) {
  packet.ingress = place.ingress.empty() ? "none" : place.ingress;
  packet.egress = place.egress.empty() ? "none" : place.egress;
  const TraceResult result =
      one_by_one ? place.tracer->trace(packet, false) : place.classifier->trace(packet);
  if (result.outcomes.size() != 1) return "not certain";
  const Outcome& outcome = result.outcomes[0];
  const AccessList& list = place.tracer->lists()[outcome.list].list();
  return verdict_text(outcome.verdict).substr(0, verdict_text(outcome.verdict).find(' ')) + " " +
         list.name + "/" + (outcome.entry ? list.entries[*outcome.entry].name : "");
}

void compare(const std::string& file, int seed, int count) {
  const Model model = read_rfc8519(tools_test::read_text(file), file).model;
  std::map<std::string, Place> places;
  std::set<std::string> deciders;
  size_t asked = 0;
  for (const Question& question : questions(file, seed, count)) {
    auto found = places.find(question.where);
    if (found == places.end())
      found = places.emplace(question.where, place_of(model, question.where)).first;
    const std::string wanted = question.action + " " + question.decider;
    const Packet packet = packet_of(question.packet);
    ASSERT_EQ(verdict(found->second, packet, false), wanted)
        << question.where << " " << question.packet;
    if (asked++ % 8 == 0) {
      ASSERT_EQ(verdict(found->second, packet, true), wanted);
    }
    deciders.insert(wanted);
  }
  EXPECT_GT(deciders.size(), std::min<size_t>(static_cast<size_t>(count) / 200, 60));
}

TEST(SecondOpinion, DecidesTheSameOnTheExample) {
  compare((tools_test::source_dir() / "examples/edge-router.rfc8519.json").string(), 1,
          paced_count(100000));
}

TEST(SecondOpinionGenerated, DecidesTheSameOnGeneratedLists) {
  for (const int seed : {1, 2}) {
    const tools_test::TempDir dir;
    const std::string file = (dir / "lists.json").string();
    tools_test::write_text(file, run_evaluator("list " + std::to_string(seed) + " 1000"));
    compare(file, seed, paced_count(50000));
  }
}

}  // namespace
