#include "tools/cli.h"

int main(int argc, char** argv) {
  return qimctl::run(argc, argv);
}
