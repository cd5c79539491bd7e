// The program qimctl-fleet, which `qimctl fleet` runs.
#include "fleet/tool/command_line.h"

int main(int argc, char** argv) {
  return qim::fleet::run(argc, argv);
}
