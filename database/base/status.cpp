// The statuses of the database: one table of names and meanings.
#include "rov.h"

namespace {

struct Row {
  uint32_t status;
  const char* name;
  const char* text;
};

#define ROW(name, text) \
  { name, #name, text }

constexpr Row kRows[] = {
    ROW(ROV_OK, "Success."),
    ROW(ROV_ERR_GENERIC,
        "The storage engine failed in a way that has no status of its own; "
        "rov_err_message() has its words."),
    ROW(ROV_ERR_NOT_SUPPORTED,
        "The operation has no meaning without a device's servers; do without."),
    ROW(ROV_ERR_INVALID, "An argument is missing or out of its range; correct the call."),
    ROW(ROV_ERR_HANDLE,
        "The handle was closed, is of another kind or was never given out; open "
        "what it should name and use the new handle."),
    ROW(ROV_ERR_NO_MEM, "Out of memory, or over the pool's limit; free some or raise the limit."),
    ROW(ROV_ERR_NO_ITEM,
        "There is no such node, data set, referrer, private data or snapshot; check "
        "the identifier, or open a new session to see later commits."),
    ROW(ROV_ERR_LENGTH,
        "A buffer is smaller than the data, or a name or value has a length that it "
        "may not have; ask for the length first."),
    ROW(ROV_ERR_READ_ONLY,
        "The session or database was opened for reading only; open it for writing."),
    ROW(ROV_ERR_NO_LINK, "The node has no link in that field."),
    ROW(ROV_ERR_TLV_TRUNCATED,
        "A TLV attribute runs past the end of its array; the data is cut off "
        "or damaged, encode it anew."),
    ROW(ROV_ERR_TLV_OVERLONG,
        "Bytes follow the last TLV attribute, or a value is longer than may be; "
        "pass the exact length or encode it anew."),
    ROW(ROV_ERR_TLV_DEPTH, "TLV records are nested deeper than the codec goes; flatten the data."),
    ROW(ROV_ERR_TLV_WIDTH, "A TLV integer has not the width of its field; encode it anew."),
    ROW(ROV_ERR_TLV_DUPLICATE, "A TLV field that is not a list occurs twice; encode it once."),
    ROW(ROV_ERR_TLV_UNION,
        "A TLV union has a discriminator that it does not hold; check the record's "
        "type."),
    ROW(ROV_ERR_TLV_PADDING, "TLV padding bytes are not zero; encode the data anew."),
    ROW(ROV_ERR_TLV_TABLE, "The codec cannot follow a descriptor table; correct the table."),
    ROW(ROV_ERR_TLV_ROOM,
        "The output buffer is too small for the TLV data; ask for the size first."),
    ROW(ROV_ERR_OPEN,
        "The database directory cannot be opened or made; check the path and its "
        "permissions."),
    ROW(ROV_ERR_FORMAT,
        "The directory holds no node database, or one of an unknown format version; "
        "check the path, or use the version that wrote it."),
    ROW(ROV_ERR_WORD_SIZE,
        "The database was written by a process of another word size; dump it there "
        "and restore the dump here."),
    ROW(ROV_ERR_BYTE_ORDER,
        "The database was written by a process of another byte order; dump it "
        "there and restore the dump here."),
    ROW(ROV_ERR_CORRUPT, "A stored record is damaged; restore the database from a dump."),
    ROW(ROV_ERR_FULL,
        "No space left on the disk or within the map's limit (ROV_MAP_MAX); free space "
        "or raise the limit and try again."),
    ROW(ROV_ERR_BUSY,
        "Another writer holds the database, or all reader or handle slots are taken; "
        "try again later."),
    ROW(ROV_ERR_IO, "The system refused to read or write; rov_err_message() has its reason."),
    ROW(ROV_ERR_SES_EXPIRED, "The session was idle for too long; close it and open a new one."),
    ROW(ROV_ERR_NO_VALUE, "Nothing of that kind was stored."),
    ROW(ROV_ERR_PS_SIZE,
        "The publication has more nodes or bytes than rov_db_set_ps_sizes allows; raise the "
        "limits or make the policy smaller."),
    ROW(ROV_ERR_SES_HELD,
        "The session read one commit for longer than ROV_READ_LIMIT while the file grew for it; "
        "close it and open a new one."),
};

#undef ROW

constexpr Row kUnknown = {0, "ROV_ERR_UNKNOWN", "The number is no status of the node database."};

const Row& row_of(uint32_t status) {
  for (const Row& row : kRows) {
    if (row.status == status) return row;
  }
  return kUnknown;
}

}  // namespace

const char* rov_status_name(uint32_t status) {
  return row_of(status).name;
}

const char* rov_status_text(uint32_t status) {
  return row_of(status).text;
}
