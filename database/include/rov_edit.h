/*
 * rov_edit.h - writing and walking the embedded node database: for tools and tests. Devices'
 * databases are written by their own servers and have no such interface, so a policy library never
 * uses it.
 *
 * A write session is one transaction. It reads like any other session (rov.h) and sees its own
 * writes; nobody else sees them before rov_edit_commit. One write session at a time per database,
 * over all processes.
 */
#ifndef ROV_EDIT_H
#define ROV_EDIT_H

#include "rov.h"

/* What follows is exported, also where the default is hidden. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* What rov_edit_node_put stores. What the pointers lead to is read during the call only.
 * The TLV data of a policy node are what qim_node_to_tlv makes of a qim_node_t, qim_node_get_tlv_sz
 * bytes of them; those of its body alone (qim_filter_to_tlv and the like) are not, and nothing but
 * reading the node or a check of the policy finds that out. */
typedef struct rov_edit_node {
  rov_node_id_t id;  /* first word not zero, the others zero */
  uint32_t flags;    /* ROV_NODE_*; other bits are kept as they are */
  uint32_t tlv_len;  /* bytes at tlv, at most 16 MiB */
  const void* tlv;   /* the node's TLV data (docs/tlv.md), of which only the bytes are kept */
  uint32_t dset_len; /* 0 or 21 */
  const void* dset;  /* data-set name, network order; several nodes may bear one name */
} rov_edit_node_t;

/* Begins a write session on `db`. Waits for another writer as rov_lib_init_locks says. It may go on
 * in another thread. Its edits are kept in memory until it is committed.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_READ_ONLY; ROV_ERR_BUSY; a status of the store. */
uint32_t rov_edit_begin(uint32_t db, uint32_t* ses_out);
/* Ends the session whole: all its writes, durable when the call returns 0; on failure none of them,
 * ROV_ERR_FULL when the disk or the map's limit is reached, ROV_ERR_BUSY when something wrote that
 * takes no turn, what an edit failed with half-way (NO_MEM or a status of the store),
 * ROV_ERR_SES_EXPIRED when it was idle for too long (rov_ses_timeout) among others. The handle is
 * closed either way. */
uint32_t rov_edit_commit(uint32_t ses);
/* Ends the session and drops its writes. ROV_ERR_HANDLE; ROV_ERR_READ_ONLY for a read session. */
uint32_t rov_edit_abandon(uint32_t ses);

/* ---- Edits ----------------------------------------------------------------------------------- */

/* Each is done whole or not at all when it gives ROV_ERR_INVALID, LENGTH, NO_ITEM or
 * NO_LINK; after any other failure the session can't be committed any more. ROV_ERR_READ_ONLY when
 * it is a read session, or a base; ROV_ERR_HANDLE. */

/* Stores a node, or replaces one: its links and private data stay as they are. For
 * node->tlv see qim_node_to_tlv and qim_node_get_tlv_sz. */
uint32_t rov_edit_node_put(uint32_t ses, const rov_edit_node_t* node);
/* Removes a node with its links and all clients' private data. Links of others that lead to it stay
 * and lead nowhere, until there is such a node again. Nodes that only it led to, such as the Action
 * that names an interface, stay as well: who deletes the one deletes them, or a check of the policy
 * finds nodes that nothing refers to. */
uint32_t rov_edit_node_del(uint32_t ses, rov_node_id_t id);
/* Stores a link of node link->owner under link->field, replacing one in that field; the owner must
 * exist, `node` (not all zero) and `node2` (all zero for none) need not. Writes the back-references
 * of both, not before somebody asks for them or commits: what fails then (no memory, a damaged
 * target) is that call's status, and the session can't be committed any more. Reserved members are
 * not looked at. */
uint32_t rov_edit_link_put(uint32_t ses, const rov_link_t* link);
/* Removes the link in that field. */
uint32_t rov_edit_link_del(uint32_t ses, rov_node_id_t owner, uint32_t field);

/* ---- Walking --------------------------------------------------------------------------------- */

/* The node after `after` in identifier order (all zero = from the start); ROV_ERR_NO_ITEM past the
 * last. */
uint32_t rov_node_next(uint32_t ses, rov_node_id_t after, rov_node_parms_t* parms);
/* The n-th link of a node in field order, n from 0; ROV_ERR_NO_LINK past the last. */
uint32_t rov_node_link_nth(uint32_t ses, rov_node_id_t id, uint32_t n, rov_link_t* link);

/* ---- Files ----------------------------------------------------------------------------------- */

/* The format of a database's files; others are refused with ROV_ERR_FORMAT. */
enum { ROV_FORMAT = 3 };

/* Bytes of the longest path of a snapshot, with its ending 0. */
enum { ROV_SNAPSHOT_PATH = 256 };
/* The path of the first snapshot of `db` that comes after `after` in the order of the bytes ("" or
 * NULL = from the start), into `room` bytes at `path`, terminated.
 * ROV_ERR_NO_ITEM past the last; ROV_ERR_LENGTH; ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the
 * store. */
uint32_t rov_snapshot_next(uint32_t db, const char* after, uint32_t room, char* path);
/* Closes the handle of a snapshot (rov_db_snapshot) and the sessions that were opened on it; the
 * snapshot itself stays. ROV_ERR_HANDLE. */
uint32_t rov_snapshot_close(uint32_t snapshot);

/* What rov_edit_verify found. */
typedef struct rov_verify {
  uint64_t revision;   /* the newest commit */
  uint64_t bytes;      /* of the data file */
  uint64_t pages;      /* of the database, free ones included */
  uint64_t free_pages; /* pages that later commits will use */
  uint64_t nodes;
  uint64_t records; /* of all kinds, nodes included */
  uint64_t sum;     /* what rov_edit_node_sum gives, over all nodes */
  uint32_t page_size;
  uint32_t reserved0;
} rov_verify_t;

/* Verifies the data file of an open database or snapshot: every page, every entry and every
 * record's checksum, without the storage engine. A database that no other process had open was
 * verified when it was opened, which failed if it is damaged; asking just after that costs nothing.
 * Otherwise it waits for writers like a writer (rov_lib_init_locks), and they wait for it.
 * ROV_ERR_CORRUPT and ROV_ERR_FORMAT, with the place of the damage in rov_err_message;
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_BUSY when another writer does not finish, such as one of
 * the same thread; a status of the store. */
uint32_t rov_edit_verify(uint32_t db, rov_verify_t* report);

/* The same of the very commit that a session reads, so that what is read through it afterwards can be
 * held against the counts. ROV_ERR_BUSY when the database has a newer one by now; a new session
 * reads that. Not for a write session, which it would wait for. Beside that, as rov_edit_verify;
 * ROV_ERR_SES_EXPIRED. */
uint32_t rov_ses_verify(uint32_t ses, rov_verify_t* report);

/* The sum of the checksums of a node as the session reads it, with its links and what clients keep
 * on it. Over all nodes it is what rov_ses_verify found, or not all of them were read.
 * ROV_ERR_NO_ITEM; ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the store. */
uint32_t rov_edit_node_sum(uint32_t ses, rov_node_id_t id, uint64_t* sum);

/* What somebody does with a database now (rov_edit_holders). */
enum {
  ROV_HOLDER_READER = 1, /* a session, or a call that is under way, reads commit `revision` */
  ROV_HOLDER_WRITER = 2  /* a write session is open; `revision` is 0 */
};
typedef struct rov_holder {
  uint32_t what;     /* ROV_HOLDER_* */
  uint32_t pid;      /* the process */
  uint64_t revision; /* pages of this commit and of later ones cannot be used again */
  /* Seconds for which it has not been the newest; 0 while it is, or when that is not known: the log of
     changes tells, where it has later ones. */
  uint32_t seconds;
  uint32_t reserved0;
} rov_holder_t;
typedef void (*rov_holder_fn)(const rov_holder_t* holder, void* arg);
/* Calls `visit` for everybody, of any process, who reads or writes the database, readers first, as
 * it was when this was called; `arg` goes to it. Readers of snapshots that
 * are kept are none of the database's. Nobody waits for this and it waits for nobody.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the store. */
uint32_t rov_edit_holders(uint32_t db, rov_holder_fn visit, void* arg);

/* Rewrites the data file of the database in `path` without free pages, which makes the file as
 * small as it can be. Its commits keep their numbers. Nobody may have the database open. *before
 * and *after: bytes of the file; may be NULL. On failure the file stays as it was.
 * ROV_ERR_BUSY when it is open, in this process or another; ROV_ERR_OPEN; ROV_ERR_FORMAT,
 * ROV_ERR_WORD_SIZE, ROV_ERR_BYTE_ORDER, ROV_ERR_CORRUPT; ROV_ERR_FULL when there is no room for a
 * second file; ROV_ERR_INVALID; a status of the store. */
uint32_t rov_edit_compact(const char* path, uint64_t* before, uint64_t* after);

/* Flags of rov_edit_backup. */
enum { ROV_BACKUP_REPLACE = 1 /* take the place of a database that is there; of nothing else */ };

/* Makes a backup of an open database or snapshot in the directory `path`, which is not there yet: a
 * database of its own, with the newest commit of this one, for its owner alone. Sessions and writers of
 * other processes go on meanwhile; commits of this process wait. It is verified, as rov_edit_verify does,
 * and synced before it comes into place, there whole or not at all; what a killed process leaves beside it
 * is cleared by the next one that backs up to there. *report: what it holds. flags: ROV_BACKUP_*.
 * ROV_ERR_OPEN when something is there, or the directory above is not; ROV_ERR_BUSY when somebody else
 * makes one there, or has the one open that is to be replaced; ROV_ERR_CORRUPT; ROV_ERR_FULL;
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the store. On failure nothing is left behind. */
uint32_t rov_edit_backup(uint32_t db, const char* path, uint32_t flags, rov_verify_t* report);

/* ---- Private data of any client -------------------------------------------------------------- */

/* The n-th client in ascending order, n from 0, that keeps private data on a node, and these, into
 * `room` bytes at `data`: for tools that carry a whole database over.
 * ROV_ERR_NO_VALUE past the last; ROV_ERR_LENGTH when they do not fit, with *client and *len set.
 * ROV_ERR_NO_ITEM; ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the store. */
uint32_t rov_edit_priv_nth(uint32_t ses, rov_node_id_t id, uint32_t n, uint32_t* client,
                           uint32_t room, void* data, uint32_t* len);
/* Keeps `len` bytes at `data`, at most 1 MiB, as that client's private data on a node, in a write
 * session; 0 takes them away. ROV_ERR_LENGTH; ROV_ERR_NO_ITEM; ROV_ERR_FULL for more than 65,535
 * clients; ROV_ERR_READ_ONLY; ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the store. */
uint32_t rov_edit_priv_put(uint32_t ses, rov_node_id_t id, uint32_t client, const void* data,
                           uint32_t len);

/* ---- Marks ----------------------------------------------------------------------------------- */

/* What a program that fills a database notes of what it put there, such as the revision of a
 * policy, in the same commit. A mark has a name of 1 to 8 printable ASCII characters, without spaces,
 * and 1 to 4,096 bytes. It belongs to no node and to no client: dumps, publications and the messages
 * of changes leave marks out; copies of the file (snapshots, rov_edit_compact) have them. */
enum { ROV_MARK_NAME = 9 /* bytes of a name, with its ending 0 */, ROV_MARK_BYTES = 4096 };
/* Keeps `len` bytes at `data` under that name, in place of what was there, in a write session; 0
 * takes the mark away, if there is one. ROV_ERR_INVALID; ROV_ERR_LENGTH; ROV_ERR_READ_ONLY;
 * ROV_ERR_HANDLE; after any other failure, such as ROV_ERR_NO_MEM, the session can't be committed
 * any more. */
uint32_t rov_edit_mark_put(uint32_t ses, const char* name, const void* data, uint32_t len);
/* The bytes under that name, as any session sees them, into `room` bytes at `data`; *len: how many
 * they are. ROV_ERR_NO_VALUE when there is no such mark; ROV_ERR_LENGTH when they do not fit, with
 * *len set; ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the store. */
uint32_t rov_mark_get(uint32_t ses, const char* name, uint32_t room, void* data, uint32_t* len);
/* The name of the first mark that comes after `after` in the order of the bytes ("" or NULL = from
 * the start), into ROV_MARK_NAME bytes at `name`, terminated. ROV_ERR_NO_VALUE past the last;
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; a status of the store. */
uint32_t rov_mark_next(uint32_t ses, const char* after, char* name);

/* ---- Helpers --------------------------------------------------------------------------------- */

/* The CRC-32C of `len` bytes at `data`, continued from `crc`: 0 for the first piece, the result so
 * far for the next. */
uint32_t rov_crc32c(uint32_t crc, const void* data, uint32_t len);

/* The calling thread's last failure of any rov_* function in words: what, where, what to do about
 * it. Valid until the thread's next failure; "" when there was none. */
const char* rov_err_message(void);

#ifdef __cplusplus
}
#endif

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
