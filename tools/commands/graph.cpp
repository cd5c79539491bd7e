// `qimctl graph`: policies as pictures.
#include "tools/commands/graph.h"

#include "policy/base/text.h"
#include "policy/graph/dot.h"
#include "policy/store/stored_model.h"
#include "rov.h"
#include "tools/base/output.h"
#include "tools/base/program.h"

namespace qimctl {

namespace {

void print_picture(const std::string& picture, const GraphOptions& options) {
  if (is_text(options.form)) return print(picture);
  JsonValue value;
  value.set("format", options.dot ? "dot" : "svg");
  value.set("picture", picture);
  print_value(value, options.form);
}

}  // namespace

void print_graph(const ReadSession& session, const GraphOptions& options) {
  const StoredModel stored = read_stored_model(session);
  const std::string dot = to_dot(stored.model, graph_choice(options.what));
  if (dot.empty()) {
    const std::string what = options.what.empty() ? "the policy" : quoted(options.what);
    throw DatabaseError(ROV_ERR_NO_ITEM, "draw " + what,
                        "there is no such access list, and nothing is attached there; 'qimctl "
                        "acl' names what there is");
  }
  if (options.dot) return print_picture(dot, options);
  const ProgramResult drawn = run_program({"dot", "-Tsvg"}, dot);
  if (!drawn.found)
    throw OutputError(
        "cannot draw: there is no program 'dot'; install Graphviz, or take --format dot and draw "
        "it elsewhere");
  if (!drawn.good) throw OutputError("cannot draw: the program 'dot' failed; take --format dot");
  print_picture(drawn.output, options);
}

}  // namespace qimctl
