/* A client as someone else would write one: plain C99, and of what is installed the headers and
 * libraries only. Each family below uses the calls that its name says on the policy of
 * examples/edge-all-types.json and checks what they give. */
#ifndef CLIENT_H
#define CLIENT_H

#include <qim.h>
#include <rov.h>

/* Whose private data the client sees: nobody else in the test has this identity. */
#define CLIENT_ID 0x57a6e5u

/* What the families share. */
typedef struct client {
  const char* directory; /* of the database */
  uint32_t db;
  uint32_t ses;
} client_t;

/* Ends the program with what was expected where, unless both values are equal. */
#define IS(value, expected) \
  must_be((uint64_t)(value), (uint64_t)(expected), #value, __FILE__, __LINE__)
/* The same for bytes and for texts. */
#define SAME(bytes, expected, count) \
  must_be(memcmp((bytes), (expected), (count)) == 0, 1, #bytes, __FILE__, __LINE__)
#define HAS(text, part) must_have((text), (part), #text, __FILE__, __LINE__)

void must_be(uint64_t value, uint64_t expected, const char* what, const char* file, int line);
void must_have(const char* text, const char* part, const char* what, const char* file, int line);

void start_up(client_t* client);
void errors(client_t* client);
void identifiers(client_t* client);
void destinations(client_t* client);
void names(client_t* client);
void codec(client_t* client);
void nodes(client_t* client);
void open_nodes(client_t* client);
void cache(client_t* client);
void links(client_t* client);
void references(client_t* client);
void data_sets(client_t* client);
void enforcement(client_t* client);
void variable_parts(client_t* client);
void lists(client_t* client);
void criteria(client_t* client);
void list_names(client_t* client);
void statuses(client_t* client);
void node_data(client_t* client);
void database_data(client_t* client);
void session_data(client_t* client);
void sessions(client_t* client);
void snapshots(client_t* client);
void changes(client_t* client);
void publications(client_t* client);
void show(client_t* client);
void threads(client_t* client);
void shut_down(client_t* client);

#endif
