// Which commands there are and what they are given; runs one.
#include "fleet/tool/command_line.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <new>

#include "fleet/base/error.h"
#include "fleet/tool/commands.h"
#include "fleet/tool/context.h"
#include "policy/base/names.h"
#include "policy/store/database.h"
#include "tools/base/complaint.h"
#include "tools/base/output.h"
#include "tools/base/usage.h"
#include "tools/options/files.h"
#include "tools/options/help.h"
#include "tools/options/usage.h"
#include "tools/options/values.h"

namespace qim::fleet {

namespace {

using qimctl::ExitCode;
using qimctl::OutputForm;

// More would only push the first ones off the screen.
constexpr size_t most_problems = 50;

class CommandLine {
 public:
  CommandLine() {
    qimctl::use_own_words(app_);
    app_.require_subcommand(0, 1);
    app_.fallthrough();
    app_.add_option(
            "--config", config_,
            "Settings of the fleet; else $QIM_FLEET_CONF, else " + std::string(default_settings))
        ->type_name("FILE");
    app_.add_option_function<std::string>(
            "-o,--output",
            [this](const std::string& name) {
              if (qimctl::parse_form(name, form_)) return;
              throw qimctl::UsageError("'" + name + "' is no form of output; there are " +
                                       qimctl::output_forms);
            },
            std::string("Form of the output: ") + qimctl::output_forms)
        ->type_name("FORM");
    app_.add_flag_callback(
        "--json", [this] { form_ = OutputForm::json; }, "The same as -o json");
    add_push();
    add_status();
    add_rollout();
    add_rollback();
    add_prune();
    add_looking();
    add_keygen();
    add_help();
  }
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  ExitCode run(int argc, const char* const* argv) {
    try {
      app_.parse(argc, argv);
      if (app_.get_subcommands().empty()) throw CLI::RequiredError("A subcommand");
      return action_();
    } catch (const CLI::CallForHelp&) {
      qimctl::print(qimctl::help_of(qimctl::named_command(app_)));
    } catch (const CLI::ParseError& error) {
      throw qimctl::UsageError(qimctl::usage_text(app_, error));
    }
    return qimctl::exit_ok;
  }

 private:
  using OnPublisher = std::function<ExitCode(const Publisher&)>;

  void on(CLI::App* command, Role role, OnPublisher run) {
    command->callback([this, role, run = std::move(run)] {
      action_ = [this, role, run] {
        const Context context(config_, role);
        return run(context.publisher());
      };
    });
  }

  static void add_scope(CLI::App* command, std::string& scope) {
    command->add_option("SCOPE", scope, "Which devices: a name that they have in their settings")
        ->required()
        ->type_name("");
  }

  static CLI::Option* add_number(CLI::App* command, const char* name, uint64_t& number,
                                 const char* help) {
    return command->add_option(name, number, help)->type_name("");
  }

  void add_push() {
    const auto options = std::make_shared<PushOptions>();
    CLI::App* command = app_.add_subcommand(
        "push", "Make policy files the next revision, and show what differs first");
    add_scope(command, options->scope);
    command->add_option("FILE", options->input.files, "Policy files; - for standard input")
        ->required()
        ->type_name("");
    command->add_option("--expect", options->expect, "Refuse unless this revision is the newest")
        ->type_name("N");
    command->add_option("-m,--message", options->message, "What it is for")->type_name("TEXT");
    command->add_flag("--prune", options->prune, "Delete access lists that the files do not have");
    command->add_flag("--dry-run", options->dry_run, "Only show what differs");
    command->add_flag("--lossy", options->lossy, "Accept what can't be carried as it is");
    qimctl::add_file_options(command, options->input.format, options->input.reading);
    on(command, Role::publisher, [this, options](const Publisher& publisher) {
      options->form = form_;
      return push_files(publisher, *options);
    });
  }

  void add_status() {
    const auto options = std::make_shared<StatusOptions>();
    CLI::App* command = app_.add_subcommand("status", "What devices say that they hold");
    command->add_option("SCOPE", options->scopes, "Scopes; all when none is given")->type_name("");
    command->add_flag("--behind", options->behind, "Those that should hold another revision");
    command->add_flag("--refused", options->refused, "Those that refused what they should hold");
    command->add_flag("--drift", options->drift, "Those whose database was changed otherwise");
    on(command, Role::reader, [this, options](const Publisher& publisher) {
      options->form = form_;
      return print_status(publisher, *options);
    });
  }

  // A command that moves the head of a scope.
  template <typename Move>
  void add_move(CLI::App* command, const std::shared_ptr<std::string>& scope, Move move) {
    add_scope(command, *scope);
    on(command, Role::publisher, [this, scope, move](const Publisher& publisher) {
      const Scope moved(publisher, *scope);
      print_head(move(moved), form_);
      return qimctl::exit_ok;
    });
  }

  void add_rollout() {
    CLI::App* rollout = app_.add_subcommand("rollout", "Give devices the next revision in stages");
    rollout->require_subcommand(1);
    add_start(rollout->add_subcommand("start", "Begin with some devices"));
    const auto advance = std::make_shared<Advance>();
    CLI::App* command = rollout->add_subcommand("advance", "Go on to more devices");
    command->add_option("--percent", advance->percent, "How many of all; 100 when not given")
        ->check(CLI::Range(0u, 100u))
        ->type_name("N");
    command->add_flag("--force", advance->force, "Although more refused it than may");
    add_move(command, std::make_shared<std::string>(),
             [advance](const Scope& scope) { return advance_rollout(scope, *advance); });
    add_move(rollout->add_subcommand("hold", "No further device takes it"),
             std::make_shared<std::string>(),
             [](const Scope& scope) { return hold_rollout(scope); });
    add_watch(rollout->add_subcommand(
        "watch", "Say how far it is, and hold it when too many devices refuse it"));
  }

  static void add_time(CLI::App* command, const std::string& name, std::chrono::milliseconds& time,
                       const char* help) {
    command
        ->add_option_function<std::string>(
            name,
            [name, &time](const std::string& text) {
              if (parse_duration(text, time)) return;
              throw qimctl::UsageError(name + ": give a time such as 30s, 5min or 1h");
            },
            help)
        ->type_name("TIME");
  }

  void add_watch(CLI::App* command) {
    const auto options = std::make_shared<WatchOptions>();
    add_scope(command, options->scope);
    add_time(command, "--every", options->every, "How often to look; 5s when not given");
    add_time(command, "--for", options->most, "Ends after that time; when all have it, else");
    on(command, Role::publisher, [this, options](const Publisher& publisher) {
      options->form = form_;
      return watch_rollout(publisher, *options);
    });
  }

  void add_prune() {
    const auto options = std::make_shared<PruneOptions>();
    CLI::App* command = app_.add_subcommand(
        "prune", "Take old revisions out of the store that nobody needs any more");
    add_scope(command, options->scope);
    add_number(command, "--keep", options->keep, "The newest so many stay, and what is needed")
        ->required()
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    command->add_flag("--dry-run", options->dry_run, "Only say what would go");
    on(command, Role::publisher, [this, options](const Publisher& publisher) {
      options->form = form_;
      return prune_scope(publisher, *options);
    });
  }

  void add_start(CLI::App* command) {
    const auto stage = std::make_shared<Stage>();
    const auto percent = std::make_shared<std::optional<uint32_t>>();
    command
        ->add_option("--percent", *percent,
                     "How many of all devices; all when neither this nor a label is given")
        ->check(CLI::Range(0u, 100u))
        ->type_name("N");
    command->add_option("--label", stage->labels, "And those that bear it")->type_name("LABEL");
    command
        ->add_option("--max-failures", stage->max_failures,
                     "It goes on only while no more devices refuse it; 0 when not given")
        ->type_name("N");
    command
        ->add_option_function<std::string>(
            "--confirm",
            [stage](const std::string& text) {
              std::chrono::milliseconds time{};
              if (!parse_duration(text, time) || time.count() / 1000 > UINT32_MAX)
                throw qimctl::UsageError("--confirm: give a time such as 30s, 5min or 1h");
              stage->confirm_seconds = static_cast<uint32_t>(time.count() / 1000);
            },
            "A device goes back by itself that reaches nobody for so long after taking it")
        ->type_name("TIME");
    add_move(command, std::make_shared<std::string>(), [stage, percent](const Scope& scope) {
      stage->percent = percent->value_or(stage->labels.empty() ? 100 : 0);
      return start_rollout(scope, *stage);
    });
  }

  void add_rollback() {
    const auto to = std::make_shared<std::optional<uint64_t>>();
    CLI::App* command =
        app_.add_subcommand("rollback", "Make an earlier revision what all devices hold");
    command->add_option("--to", *to, "Which; else the one before what is being rolled out")
        ->type_name("N");
    add_move(command, std::make_shared<std::string>(),
             [to](const Scope& scope) { return roll_back(scope, *to); });
  }

  void add_looking() {
    const auto scope = std::make_shared<std::string>();
    CLI::App* log = app_.add_subcommand("log", "The revisions of a scope, the newest first");
    add_scope(log, *scope);
    on(log, Role::reader, [this, scope](const Publisher& publisher) {
      return print_log(Scope(publisher, *scope), form_);
    });
    CLI::App* verify = app_.add_subcommand(
        "verify", "Make every revision again, and compare digests and signatures");
    add_scope(verify, *scope);
    on(verify, Role::reader, [this, scope](const Publisher& publisher) {
      return print_verification(Scope(publisher, *scope), form_);
    });
    const auto from = std::make_shared<uint64_t>();
    const auto to = std::make_shared<uint64_t>();
    CLI::App* diff = app_.add_subcommand("diff", "What differs between two revisions");
    add_scope(diff, *scope);
    add_number(diff, "N", *from, "A revision; 0 for nothing")->required();
    add_number(diff, "M", *to, "Another one")->required();
    on(diff, Role::reader, [this, scope, from, to](const Publisher& publisher) {
      return print_difference(Scope(publisher, *scope), *from, *to, form_);
    });
  }

  void add_keygen() {
    const auto file = std::make_shared<std::string>();
    const auto name = std::make_shared<std::string>("publisher");
    CLI::App* command = app_.add_subcommand(
        "keygen", "Make a signing key, and print the line that others trust it by");
    command->add_option("FILE", *file, "The file for the key; it must not be there")
        ->required()
        ->type_name("");
    command->add_option("--name", *name, "Whose it is; of a device, the device's name")
        ->type_name("NAME");
    command->callback(
        [this, file, name] { action_ = [file, name] { return make_key(*file, *name); }; });
  }

  void add_help() {
    const auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* command = app_.add_subcommand("help", "Show help, of all or of one command");
    command->add_option("COMMAND", *words, "A command")->type_name("");
    command->callback([this, words] {
      action_ = [this, words] {
        qimctl::print(qimctl::help_text(app_, *words));
        return qimctl::exit_ok;
      };
    });
  }

  CLI::App app_{"Keeps one policy on many devices.", "qimctl fleet"};
  std::function<ExitCode()> action_;
  std::string config_;
  OutputForm form_ = OutputForm::table;
};

void complain_of(const qimctl::InputError& error) {
  const std::vector<qimctl::Problem>& problems = error.problems();
  for (size_t i = 0; i < problems.size() && i < most_problems; i++) qimctl::complain(problems[i]);
  if (problems.size() > most_problems)
    qimctl::complain("and " + qimctl::counted(problems.size() - most_problems, "more problem"));
}

int said(const std::exception& error, ExitCode code) {
  qimctl::complain(error.what());
  return code;
}

// What is wrong with a command line is complained of in the form that it asks for.
OutputForm wanted_form(int argc, const char* const* argv) {
  OutputForm form = OutputForm::table;
  for (int i = 1; i < argc; i++) {
    const std::string word = argv[i];
    if (word == "--json") form = OutputForm::json;
    if ((word == "-o" || word == "--output") && i + 1 < argc) qimctl::parse_form(argv[i + 1], form);
  }
  return form;
}

}  // namespace

int run(int argc, const char* const* argv) {
  try {
    qimctl::complain_as(wanted_form(argc, argv));
    const int code = CommandLine().run(argc, argv);
    qimctl::flush_output();
    return code;
  } catch (const qimctl::UsageError& error) {
    return said(error, qimctl::exit_usage);
  } catch (const qimctl::InputError& error) {
    complain_of(error);
    return qimctl::exit_input;
  } catch (const ConfigError& error) {
    return said(error, qimctl::exit_input);
  } catch (const RefusedError& error) {
    return said(error, qimctl::exit_refused);
  } catch (const AbsentError& error) {
    return said(error, qimctl::exit_not_found);
  } catch (const ForgedError& error) {
    return said(error, qimctl::exit_defects);
  } catch (const qimctl::OutputError& error) {
    return said(error, qimctl::exit_output);
  } catch (const std::bad_alloc&) {
    qimctl::complain("out of memory; free some and try again");
    return qimctl::exit_database;
  } catch (const std::exception& error) {
    return said(error, qimctl::exit_database);
  }
}

}  // namespace qim::fleet
