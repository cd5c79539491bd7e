// qimd: the command line.
#include <getopt.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>

#include "processes/qimd/notify.h"
#include "processes/qimd/service.h"

namespace {

using qim::fleet::LogLevel;
using qim::fleet::Request;

constexpr const char* help =
    "qimd [--config FILE] [--once SECONDS]\n"
    "qimd [--config FILE] --check | --repair | --accept-cluster | --force\n"
    "\n"
    "Keeps this device's database at the revision of the policy that its fleet gives it.\n"
    "\n"
    "  --config FILE     the settings; else /etc/qim/qimd.conf\n"
    "  --once SECONDS    ends when the database holds it, or fails after that time\n"
    "  --check           says what is wrong with the settings\n"
    "  --repair          makes the database again what its revision says\n"
    "  --accept-cluster  takes another cluster for the right one\n"
    "  --force           takes a head that went back, and what was refused before\n";

constexpr option long_options[] = {
    {"config", required_argument, nullptr, 'c'},   {"once", required_argument, nullptr, 'o'},
    {"check", no_argument, nullptr, 'k'},          {"repair", no_argument, nullptr, 'r'},
    {"accept-cluster", no_argument, nullptr, 'a'}, {"force", no_argument, nullptr, 'f'},
    {"help", no_argument, nullptr, 'h'},           {nullptr, 0, nullptr, 0}};

struct Arguments {
  std::string config = "/etc/qim/qimd.conf";
  unsigned once = 0;
  bool check = false;
  std::optional<Request> request;
};

// An exit code where there is nothing more to do.
std::optional<int> parse(int argc, char** argv, Arguments& arguments) {
  for (int found = 0; (found = getopt_long(argc, argv, "", long_options, nullptr)) != -1;) {
    switch (found) {
      case 'c':
        arguments.config = optarg;
        break;
      case 'o':
        arguments.once = static_cast<unsigned>(strtoul(optarg, nullptr, 10));
        if (arguments.once == 0) return qimd::exit_usage;
        break;
      case 'k':
        arguments.check = true;
        break;
      case 'r':
        arguments.request = Request::repair;
        break;
      case 'a':
        arguments.request = Request::accept_cluster;
        break;
      case 'f':
        arguments.request = Request::force;
        break;
      case 'h':
        fputs(help, stdout);
        return qimd::exit_good;
      default:
        return qimd::exit_usage;
    }
  }
  if (optind == argc) return std::nullopt;
  qimd::say(LogLevel::error, "it takes options only; --help names them");
  return qimd::exit_usage;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Arguments arguments;
    const std::optional<int> code = parse(argc, argv, arguments);
    if (code) return *code;
    if (arguments.check) return qimd::check(arguments.config);
    const qimd::Options options = qimd::load_options(arguments.config);
    if (arguments.request) return qimd::ask(options, *arguments.request);
    return qimd::run(options, arguments.once);
  } catch (const qim::fleet::ConfigError& error) {
    qimd::say(LogLevel::error, error.what());
    return qimd::exit_usage;
  } catch (const std::exception& error) {
    qimd::say(LogLevel::error, error.what());
    return qimd::exit_failed;
  }
}
