// Commands that ask what access lists decide.
#include "tools/commands/trace.h"
#include "tools/options/commands.h"

namespace qimctl {

namespace {

void add_trace(Commands& commands) {
  struct Given {
    TraceOptions options;
    std::vector<std::string> words;
  };
  const auto given = std::make_shared<Given>();
  CLI::App* command = commands.add("trace", "Say what access lists decide about a packet, and why");
  command->add_option("WHERE", given->options.where, "if:NAME[/in|/out], or the name of a list")
      ->required()
      ->type_name("");
  CLI::Option* packet =
      command->add_option("PACKET", given->words, "'tcp 192.0.2.5:4000 > 198.51.100.7:22 syn'");
  packet->type_name("");
  command->add_option("--pcap", given->options.capture, "Count the packets of this capture")
      ->excludes(packet)
      ->type_name("FILE");
  command->add_flag("-v,--verbose", given->options.verbose,
                    "Show every entry that was asked, or every packet of a capture");
  commands.ask_for(command, [&commands, given](const Database&, const ReadSession& session) {
    for (const std::string& word : given->words)
      given->options.packet += (given->options.packet.empty() ? "" : " ") + word;
    given->options.form = commands.form();
    return trace_packets(session, given->options) ? exit_ok : exit_not_found;
  });
}

}  // namespace

void add_tracing(Commands& commands) {
  add_trace(commands);
}

}  // namespace qimctl
