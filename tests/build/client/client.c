/* Runs the families one after the other; a line "OK <family>" for each that did as it should. */
#include "client.h"

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

void must_be(uint64_t value, uint64_t expected, const char* what, const char* file, int line) {
  if (value == expected) return;
  printf("%s:%d: %s is 0x%" PRIx64 ", not 0x%" PRIx64 "\n", file, line, what, value, expected);
  exit(1);
}

void must_have(const char* text, const char* part, const char* what, const char* file, int line) {
  if (strstr(text, part) != NULL) return;
  printf("%s:%d: %s is \"%s\", without \"%s\"\n", file, line, what, text, part);
  exit(1);
}

static const struct {
  const char* name;
  void (*use)(client_t* client);
} families[] = {
    {"start_up", start_up},
    {"errors", errors},
    {"identifiers", identifiers},
    {"destinations", destinations},
    {"names", names},
    {"codec", codec},
    {"nodes", nodes},
    {"open_nodes", open_nodes},
    {"cache", cache},
    {"links", links},
    {"references", references},
    {"data_sets", data_sets},
    {"enforcement", enforcement},
    {"variable_parts", variable_parts},
    {"lists", lists},
    {"criteria", criteria},
    {"list_names", list_names},
    {"statuses", statuses},
    {"node_data", node_data},
    {"database_data", database_data},
    {"session_data", session_data},
    {"sessions", sessions},
    {"snapshots", snapshots},
    {"changes", changes},
    {"publications", publications},
    {"show", show},
    {"threads", threads},
    {"shut_down", shut_down},
};

int main(int argc, char** argv) {
  client_t client;
  size_t i;
  if (argc != 2) {
    fprintf(stderr, "usage: client DATABASE\n");
    return 2;
  }
  memset(&client, 0, sizeof client);
  client.directory = argv[1];
  for (i = 0; i < sizeof families / sizeof families[0]; i++) {
    families[i].use(&client);
    printf("OK %s\n", families[i].name);
    fflush(stdout);
  }
  return 0;
}
