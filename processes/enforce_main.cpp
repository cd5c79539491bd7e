// qim-enforce: the command line.
#include <getopt.h>

#include <cstdio>
#include <exception>

#include "policy/store/database.h"
#include "processes/enforce/log.h"
#include "processes/enforce/service.h"

namespace {

constexpr const char* help =
    "qim-enforce [--db DIR] [--metrics FILE] [--once]\n"
    "qim-enforce [--db DIR] --dry-run | --counters | --remove\n"
    "\n"
    "Keeps the kernel's packet filter equal to the access lists of a database.\n"
    "\n"
    "  --db DIR        the database; else as ROV_DB says, else ./qim.db\n"
    "  --metrics FILE  writes metrics of the process to this file\n"
    "  --once          ends when the kernel holds the policy\n"
    "  --dry-run       prints the ruleset, for 'nft -j -f', and changes nothing\n"
    "  --counters      prints what the kernel has counted, by entry\n"
    "  --remove        takes the table out of the kernel\n";

constexpr option long_options[] = {
    {"db", required_argument, nullptr, 'd'}, {"metrics", required_argument, nullptr, 'm'},
    {"once", no_argument, nullptr, 'o'},     {"dry-run", no_argument, nullptr, 'n'},
    {"counters", no_argument, nullptr, 'c'}, {"remove", no_argument, nullptr, 'r'},
    {"help", no_argument, nullptr, 'h'},     {nullptr, 0, nullptr, 0}};

}  // namespace

int main(int argc, char** argv) {
  enforce::Options options;
  for (int found = 0; (found = getopt_long(argc, argv, "", long_options, nullptr)) != -1;) {
    switch (found) {
      case 'd':
        options.database = optarg;
        break;
      case 'm':
        options.metrics = optarg;
        break;
      case 'o':
        options.once = true;
        break;
      case 'n':
        options.dry_run = true;
        break;
      case 'c':
        options.counters = true;
        break;
      case 'r':
        options.remove = true;
        break;
      case 'h':
        fputs(help, stdout);
        return enforce::exit_good;
      default:
        return enforce::exit_usage;
    }
  }
  if (optind != argc) {
    enforce::say(enforce::Level::error, "it takes options only; --help names them");
    return enforce::exit_usage;
  }
  try {
    return enforce::run(options);
  } catch (const std::exception& error) {
    enforce::say(enforce::Level::error, error.what());
    return enforce::exit_failed;
  }
}
