/*
 * rov.h - the node database: everything that a policy library calls.
 *
 * Conventions
 *  1. Every function returns a status unless it says otherwise: ROV_OK or one of ROV_ERR_*. Beside
 *     those that it names, one that reads the store can return a "status of the store": CORRUPT
 *     (naming the record, or what else is damaged: the process may then be done with the database
 *     until it has closed it), IO, NO_MEM or GENERIC; one that writes, also FULL. rov_err_message
 *     (rov_edit.h) has the failure in words. On failure an output is left as it was unless the
 *     function says that it clears it.
 *  2. Handles (library, database, session, snapshot) are 32-bit numbers, never pointers, never 0. A
 *     handle that was closed, belongs to something else or was never given gives ROV_ERR_HANDLE,
 *     and so does any handle of the parent in a forked child, which opens the database anew.
 *  3. Node identifiers are passed by value where a node is read, and by address where private data
 *     is concerned. One that is all zero, or not zero in words 1 to 3, names no node.
 *  4. Lengths are in bytes and come before the buffer that they bound. A pointer that must not be
 *     NULL gives ROV_ERR_INVALID when it is.
 *  5. Threads: any function may be called from any thread. One session serves one thread at a time;
 *     sessions of their own keep threads from disturbing one another.
 *  6. The database gives no pointer into its own memory but static text; callers own every buffer.
 *
 * Plain C99; usable from C++.
 */
#ifndef ROV_H
#define ROV_H

#include "rov_types.h"

/* What follows is exported, also where the default is hidden. */
#if defined(__GNUC__)
#pragma GCC visibility push(default)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Versions that the entries expect. */
enum {
  ROV_VERSION = 1, /* of this interface and of the parameter block */
  ROV_PROTO = 4    /* of the database's own protocol: `proto` of rov_db_init */
};

/* rov_db_init flags. The bits of 0x40000463 are the client's own. */
enum {
  ROV_DB_NO_CREATE = 0x10000, /* an absent database is ROV_ERR_OPEN and is not made */
  ROV_DB_RDONLY =
      0x20000 /* nothing is written: includes ROV_DB_NO_CREATE, works on read-only media */
};

/* Statuses. */
enum {
  ROV_OK = 0,
  ROV_ERR_GENERIC = 0x41170000,       /* a failure of the engine that has no code of its own */
  ROV_ERR_NOT_SUPPORTED = 0x41170001, /* has no meaning without the device's servers */
  ROV_ERR_INVALID = 0x41170002,       /* a bad argument */
  ROV_ERR_HANDLE = 0x41170003,        /* a stale, foreign or forged handle */
  ROV_ERR_NO_MEM = 0x41170004,        /* out of memory, or over the pool's limit */
  ROV_ERR_NO_ITEM = 0x41170006,   /* no such node, data set, referrer, private data or snapshot */
  ROV_ERR_LENGTH = 0x41170007,    /* a buffer or name of the wrong length */
  ROV_ERR_READ_ONLY = 0x41170008, /* a write through a read-only session */
  ROV_ERR_NO_LINK = 0x4117000f,   /* the node has no link in that field */

  /* the TLV codec and the TLV helpers */
  ROV_ERR_TLV_TRUNCATED = 0x41170020, /* an attribute's head or value runs past the end */
  ROV_ERR_TLV_OVERLONG = 0x41170021,  /* bytes after the last attribute, or more data than may be */
  ROV_ERR_TLV_DEPTH = 0x41170022,     /* nested deeper than the codec goes */
  ROV_ERR_TLV_WIDTH = 0x41170023,     /* an integer whose length is not the field's width */
  ROV_ERR_TLV_DUPLICATE = 0x41170024, /* a second value of a field that is not a list */
  ROV_ERR_TLV_UNION = 0x41170025,     /* a discriminator that the union does not hold */
  ROV_ERR_TLV_PADDING = 0x41170026,   /* padding bytes that are not zero */
  ROV_ERR_TLV_TABLE = 0x41170027,     /* a descriptor table that the codec cannot follow */
  ROV_ERR_TLV_ROOM = 0x41170028,      /* the output buffer is too small */

  /* the store */
  ROV_ERR_OPEN = 0x41170040,       /* the database directory cannot be opened or made */
  ROV_ERR_FORMAT = 0x41170041,     /* not a node database, or of an unknown format version */
  ROV_ERR_WORD_SIZE = 0x41170042,  /* written by a process of another word size */
  ROV_ERR_BYTE_ORDER = 0x41170043, /* written by a process of another byte order */
  ROV_ERR_CORRUPT = 0x41170044,    /* a stored record whose checksum or shape is wrong */
  ROV_ERR_FULL = 0x41170045,       /* no space left: disk full or the map's limit reached */
  ROV_ERR_BUSY = 0x41170046, /* another writer holds the database, or reader slots are taken */
  ROV_ERR_IO = 0x41170047,   /* the system refused a read or write */
  ROV_ERR_SES_EXPIRED = 0x41170048, /* the session was idle for too long */
  ROV_ERR_NO_VALUE = 0x41170049,    /* nothing of that kind was stored */
  ROV_ERR_PS_SIZE = 0x4117004a,     /* a publication above the limits of rov_db_set_ps_sizes */
  ROV_ERR_SES_HELD = 0x4117004b     /* the session made the file grow for too long */
};

/* The name of a status ("ROV_ERR_CORRUPT") and what it means and what to do about it, in one
 * sentence. Static text; a status of no ROV_ name gives "ROV_ERR_UNKNOWN" and a sentence saying so.
 */
const char* rov_status_name(uint32_t status);
const char* rov_status_text(uint32_t status);

/* ---- Library and database -------------------------------------------------------------------- */

/* The library handle of identity `id` in this process, the same at every call; it needs no closing.
 * ROV_ERR_INVALID; ROV_ERR_BUSY when all handles are taken; ROV_ERR_NO_MEM. */
uint32_t rov_lib_init(uint32_t id, uint32_t* lib_out);
/* Gives a library handle the settings back that it began with: a writer waits at most 10 s for
 * another one and looks every 5 ms, with any number of write sessions; and sets the idle limit of
 * the sessions that are opened through it from now on: `arg` seconds, 0 = none (as at the
 * beginning; so do limits above four years). See rov_ses_timeout.
 * ROV_ERR_HANDLE. */
uint32_t rov_lib_defaults(uint32_t lib, uint32_t arg);
/* How write sessions of a library handle wait for others, of any process: at most `wait_ms`
 * milliseconds (0 = not at all, 0xffffffff = for ever), looking every `retry_ms` (0 counts as 1).
 * holders: how many write sessions of this handle may be open or waiting at a time, 0 = any number.
 * flags: 0.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID. */
uint32_t rov_lib_init_locks(uint32_t lib, uint32_t wait_ms, uint32_t retry_ms, uint32_t holders,
                            uint32_t flags);

/* Readies a parameter block of this build: its head, and zero everywhere else.
 * ROV_ERR_INVALID when version is not ROV_VERSION. */
uint32_t rov_db_init_parms_init(rov_parms_t* parms, uint32_t version);
/* The block that the database was opened with, as later calls changed it. p.db_path: the path that
 * is open, valid until the database is closed. ROV_ERR_HANDLE; ROV_ERR_INVALID. */
uint32_t rov_db_init_parms_get(uint32_t db, uint32_t version, rov_parms_t* parms);
/* Opens a database. version: ROV_VERSION. proto: ROV_PROTO. a1, a2, a6: the client's own, not
 * looked at. parms: NULL, or a block from rov_db_init_parms_init; p.init_id is the client's
 * identity, whose private data are seen; p.db_path the directory, NULL for $ROV_DB, and without
 * that "./qim.db". An absent database is made there whole or not at all (not the directories above
 * it), for its owner alone, or with p.db_group (the number of a group of the system's) for that
 * group as well. flags: ROV_DB_*; other bits are ignored. Every call gives a handle of its own, also on a
 * path that is open. ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_OPEN; ROV_ERR_FORMAT,
 * ROV_ERR_WORD_SIZE and ROV_ERR_BYTE_ORDER when something else wrote it; ROV_ERR_READ_ONLY when
 * this process has it open with ROV_DB_RDONLY and the call comes without; ROV_ERR_BUSY when all
 * handles are taken; a status of the store. */
uint32_t rov_db_init(uint32_t lib, uint32_t version, uint32_t a1, uint32_t a2, uint32_t proto,
                     uint32_t a6, const rov_parms_t* parms, uint32_t flags, uint32_t* db_out);
/* Closes a database handle and what was opened through it; write sessions are abandoned. Waits for
 * calls that other threads are in. arg: not looked at. ROV_ERR_HANDLE. */
uint32_t rov_db_close(uint32_t db, uint32_t arg);
/* Limits what rov_ps_datasize and rov_ps_data give of one data set: nodes, and bytes. 0 = no limit.
 * ROV_ERR_HANDLE. */
uint32_t rov_db_set_ps_sizes(uint32_t db, uint32_t max_nodes, uint32_t max_bytes);

/* ---- Callbacks of the client ----------------------------------------------------------------- */

/* Each belongs to the database handle, takes the place of an earlier one and ends with
 * rov_db_close. The database calls it from whatever thread needs it. To be registered before other
 * threads use the handle. ROV_ERR_HANDLE; ROV_ERR_INVALID for NULL. */

/* Converts the first word of an identifier in place: `to` the client's form, `from` it. */
uint32_t rov_db_reg_node_id_cnv(uint32_t db, rov_node_id_cnv_fn to, rov_node_id_cnv_fn from);
/* A show record, one for each selector; it must stay as long as the handle. ROV_ERR_FULL past 8. */
uint32_t rov_reg_show_output(uint32_t db, const rov_show_t* show);
/* Reads the policy type out of a data-set name. */
uint32_t rov_reg_extract_pinst(uint32_t db, rov_extract_pinst_fn extract);
/* Prints data-set names. */
uint32_t rov_reg_dbg_dsetname_print(uint32_t db, rov_dsetname_print_fn print);

/* ---- Nodes ----------------------------------------------------------------------------------- */

/* `ses` is a session or a session's base. All parts of one node are read in one descent: the
 * session remembers the node that it found last. Missing nodes are ROV_ERR_NO_ITEM everywhere.
 * Beside what each names: ROV_ERR_HANDLE; ROV_ERR_SES_EXPIRED; ROV_ERR_SES_HELD; ROV_ERR_INVALID; a
 * status of the store. */

/* What is known of a node; links and refs count records, lengths are bytes. */
uint32_t rov_node_parms_get(uint32_t ses, rov_node_id_t id, rov_node_parms_t* parms);
/* Copies a node's TLV data, data-set name and the client's private data, each into its (len, buf):
 * len 0 = not wanted; one that is larger than the data leaves the rest of the buffer alone; a
 * smaller one is ROV_ERR_LENGTH. Nothing is copied on failure. */
uint32_t rov_node_data_get(uint32_t ses, rov_node_id_t id, uint32_t tlv_len, void* tlv,
                           uint32_t dset_len, void* dset, uint32_t priv_len, void* priv);
/* The link that a node holds under a field code; the two are the same. Codes above 0xffff name no
 * link. ROV_ERR_NO_LINK. */
uint32_t rov_node_ln_field_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link);
uint32_t rov_node_link_get(uint32_t ses, rov_node_id_t id, uint32_t field, rov_link_t* link);
/* The node's first link, in field order, whose code equals `field` with the bits of `mask` replaced
 * by those of `value`, looking at the low `width` bits (1 to 32) alone. ROV_ERR_NO_LINK. */
uint32_t rov_node_link_match(uint32_t ses, rov_node_id_t id, uint32_t field, uint32_t mask,
                             uint32_t value, uint32_t width, rov_link_t* link);
/* A node's referrer number `index`, from 0: a node that holds links to it, as node or second node,
 * counted once, in ascending order of identifiers. *total: how many there are; *field: the lowest
 * code of the links by which this one refers. Outputs may be NULL. Asking for one after the other
 * costs a step each. ROV_ERR_NO_ITEM past the last. */
uint32_t rov_node_ref_get(uint32_t ses, rov_node_id_t id, uint32_t index, uint32_t* total,
                          uint32_t* field, rov_node_id_t* ref);
/* The first `count` of them. Where there are fewer, the rest of `refs` is left alone. */
uint32_t rov_node_ref_get_all(uint32_t ses, rov_node_id_t id, rov_node_id_t* refs, uint32_t count);
/* The parameters of data set number `selector`, from 0, among the node itself and then its
 * referrers, those that are data sets. ROV_ERR_NO_ITEM past the last. */
uint32_t rov_node_dset_get(uint32_t ses, rov_node_id_t id, uint32_t selector,
                           rov_node_parms_t* parms);

/* Keeps `len` bytes at `data`, at most 1 MiB, as the client's private data on a node; 0 takes them
 * away. They go when the node is deleted. In a write session that is part of the transaction.
 * Through any other session or a base it is a commit of its own, which waits for other writers: do
 * not call it so while a write session of the same thread is open. What is read through that
 * session then reflects the new data, and still the same commit of everything else.
 * ROV_ERR_LENGTH; ROV_ERR_BUSY; ROV_ERR_READ_ONLY; ROV_ERR_FULL, also for more than 65,535
 * clients. */
uint32_t rov_node_priv_set(uint32_t ses, const rov_node_id_t* id, const void* data, uint32_t len);
/* A pointer value that the client keeps on a node within this process; NULL takes it away. It is no
 * part of any commit: every session of the client sees it at once. It goes when this process
 * deletes the node. */
uint32_t rov_node_priv_ptr_set(uint32_t ses, const rov_node_id_t* id, void* ptr);
/* NULL when none is kept. */
uint32_t rov_node_priv_ptr_get(uint32_t ses, const rov_node_id_t* id, void** ptr);
/* Copies `src_len` bytes at `src` into `len` bytes at `buf`. ROV_ERR_LENGTH when they do not fit:
 * nothing is copied. */
uint32_t rov_data_cpy(uint32_t len, void* buf, uint32_t src_len, const void* src);

/* ---- Sessions -------------------------------------------------------------------------------- */

/* Opens a session that reads one commit: the newest of a database, however often others commit
 * meanwhile, or that of a snapshot, where `db` is one's handle (rov_db_snapshot). Until it is
 * closed the pages of a database's commit cannot be used again, and its file grows. Where the
 * environment variable ROV_READ_LIMIT has a number of seconds when the database is opened, a session
 * that is older and for which the file has grown loses its commit at its next call, or when a thread
 * of its process next opens, renews or commits a session: every call through it or its base gives
 * ROV_ERR_SES_HELD until it is closed. Without that, or with 0, there is no limit.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_NO_MEM; ROV_ERR_BUSY when all reader slots or handles
 * are taken; a status of the store. */
uint32_t rov_ses_open_ro(uint32_t db, uint32_t* ses_out);
/* Closes a session, an expired one too; a write session's edits are dropped. ROV_ERR_HANDLE. */
uint32_t rov_ses_close(uint32_t ses);
/* The handle of the session's base, which sees the newest commit at every call. It is not closed by
 * itself, but with its session. ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_SES_EXPIRED. */
uint32_t rov_ses_orig_handle(uint32_t ses, uint32_t* base_out);
/* Says that the session, or the one whose base it is, is still wanted, as any other call through it
 * does. A session that was opened under an idle limit (rov_lib_defaults) expires when no call came
 * for longer than that: every call through it or its base gives ROV_ERR_SES_EXPIRED from then on
 * until it is closed. What it held of the database is given back when a thread of its process next
 * opens, renews or commits a session, or waits for another writer: the pages that it kept, and of a
 * write session the right to write, with its edits dropped. So a process that is to hold nobody up
 * calls now and then.
 * The session's own thread calls this. ROV_ERR_HANDLE; ROV_ERR_SES_EXPIRED. */
uint32_t rov_ses_timeout(uint32_t ses);
/* Tells in *exists whether `ses` is a session, or the base of one, that was opened through `db` or
 * a snapshot of it, and can be used: 1 or 0. 0 also for one that has expired. Any thread may ask,
 * at any time; asking renews nothing.
 * ROV_ERR_HANDLE when `db` is no database or snapshot; ROV_ERR_INVALID. */
uint32_t rov_db_ses_exists(uint32_t db, uint32_t ses, uint32_t* exists);

/* Seconds for which a lock grant holds. */
enum { ROV_GRANT_SECONDS = 30 };
/* Grants the database's next write to `user`, of this process or another one: the client's identity
 * in the high 32 bits, the process in the low ones, or a user number of a change. Until
 * that user begins a write session, or writes private data, everybody else's writes wait for it as
 * for another writer, and give ROV_ERR_BUSY when that takes too long (rov_lib_init_locks). A write
 * session that is open goes on: who has it can so hand on the next turn. There is one grant at a
 * time, a later one takes the place of an earlier one, and 0 takes it back; it ends after
 * ROV_GRANT_SECONDS, and at once with the user's process.
 * ROV_ERR_HANDLE; ROV_ERR_NO_ITEM when there is no such process; ROV_ERR_READ_ONLY on a database
 * that was opened for reading only; ROV_ERR_IO, ROV_ERR_FULL. */
uint32_t rov_db_ses_lock_grant(uint32_t db, uint64_t user);

/* Data sets: the nodes with a data-set name or the flag ROV_NODE_DSET. Statuses as for nodes. */

/* How many there are. */
uint32_t rov_ses_get_num_dsets(uint32_t ses, uint32_t* count);
/* Number `selector`, from 0, in the order of names (none first), then of identifiers. Asking for
 * one after the other costs a step each. ROV_ERR_NO_ITEM past the last. */
uint32_t rov_ses_dset_get(uint32_t ses, uint32_t selector, rov_node_parms_t* parms);
/* The one of that name: 21 bytes, compared as they are. Of several nodes that bear it the one with
 * the lowest identifier. ROV_ERR_NO_ITEM; ROV_ERR_LENGTH when len is not 21. */
uint32_t rov_ses_dset_name_get(uint32_t ses, uint32_t len, const void* name,
                               rov_node_parms_t* parms);

/* ---- Snapshots that are kept ----------------------------------------------------------------- */

/* A snapshot is a whole, consistent copy of one commit of the database, under a name. It stays when
 * all processes have ended, all of them see it, and it costs the database's file size on disk but
 * holds up no pages of it, however long sessions read it. Nobody can write to it.
 *
 * Its path is its name, or the URI of a group, a '/' and the name, for example "before-upgrade" or
 * "acme://edge-7/nightly/monday". A name has no '/'; a URI neither begins nor ends with one; both
 * are not empty, have no part "." or "..", no control characters. A path has at most 255 bytes,
 * each but ASCII letters, digits, '-', '_' and '.' counting three. rov_edit.h lists paths
 * (rov_snapshot_next). */

/* Opens the snapshot of that name. Where there is none, makes it of the newest commit first: it is
 * there whole or not at all, whatever happens, and durable when the call returns. Other processes
 * read and write meanwhile; commits of this process wait.
 * *snapshot: a handle for rov_ses_open_ro, with the client and the settings that `db` has now. The
 * caller closes it (rov_snapshot_close in rov_edit.h); it ends with `db` at the latest, its
 * sessions with it. A name can be opened any number of times.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_LENGTH for too long a path; ROV_ERR_READ_ONLY when it
 * is to be made and `db` was opened for reading only; ROV_ERR_FULL, ROV_ERR_BUSY, ROV_ERR_NO_MEM; a
 * status of the store. On failure nothing is left behind. */
uint32_t rov_db_snapshot(uint32_t db, const char* name, uint32_t* snapshot);
/* The same in the group `uri`. */
uint32_t rov_db_uri_snapshot(uint32_t db, const char* uri, const char* name, uint32_t* snapshot);
/* Removes the snapshot whose path is `uri` and every one whose path begins with `uri` and a '/',
 * each at once and for all processes. Handles and sessions that are open on them, in any process,
 * go on as they are; their disk space is free when the last has been closed.
 * ROV_ERR_NO_ITEM when there was none; ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_LENGTH;
 * ROV_ERR_READ_ONLY; a status of the store, with some of them removed. */
uint32_t rov_db_uri_rm(uint32_t db, const char* uri);

/* ---- Private data of clients ----------------------------------------------------------------- */

/* What a client (an identity: rov_parms_t.p.init_id) keeps on the database and on its sessions, as
 * numbered pieces of at most 1 MiB. It survives the process; no other client sees it. Every write
 * is a commit of its own, also through a read-only session: a client that has a write session open
 * gets ROV_ERR_BUSY, after the time that rov_lib_init_locks says. Reads see the newest commit.
 *
 * rov_priv_t: key is never 0. Writes take len bytes at data. Reads take len as the room at data and
 * tell the length in it; ROV_ERR_LENGTH when the room is too small, with nothing copied.
 * Statuses beside: ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_NO_VALUE when nothing is kept there;
 * ROV_ERR_LENGTH for more than 1 MiB; ROV_ERR_BUSY; ROV_ERR_NO_MEM; a status of the store. */

/* On the database. */
uint32_t rov_db_priv_write(uint32_t db, const rov_priv_t* priv);
uint32_t rov_db_priv_read(uint32_t db, rov_priv_t* priv);
uint32_t rov_db_priv_delete(uint32_t db, uint32_t key);
/* For a client that starts again: the piece with the lowest key above `after_key`, its key in
 * priv->key. Walk from 0 until ROV_ERR_NO_VALUE. flags: 0. */
uint32_t rov_db_priv_recover2(uint32_t db, uint32_t after_key, uint32_t flags, rov_priv_t* priv);

/* Flags of the two below. */
enum {
  ROV_PRIV_KEEP = 1, /* rov_ses_priv_recover2: only look, take nothing over */
  ROV_PRIV_ALL = 2   /* rov_ses_priv_delete: everything the session keeps, whatever the key */
};

/* On a session: only that session reads its pieces. They outlive it, for recovery. flags: 0, or
 * ROV_PRIV_ALL in rov_ses_priv_delete. */
uint32_t rov_ses_priv_write(uint32_t ses, const rov_priv_t* priv, uint32_t flags);
uint32_t rov_ses_priv_read(uint32_t ses, rov_priv_t* priv);
uint32_t rov_ses_priv_delete(uint32_t ses, uint32_t key, uint32_t flags);
/* Among the pieces that the client's sessions of ended processes, and its closed ones, left: the
 * one with the lowest key above `after_key`; where several left one under that key, the one written
 * last. It becomes this session's, and the others under the key go. rov_ses_priv_recover2 with
 * ROV_PRIV_KEEP leaves all as it is; rov_ses_priv_recover has no flags. */
uint32_t rov_ses_priv_recover(uint32_t ses, uint32_t after_key, rov_priv_t* priv);
uint32_t rov_ses_priv_recover2(uint32_t ses, uint32_t after_key, uint32_t flags, rov_priv_t* priv);

/* Writes a piece on the database as rov_db_priv_write does, and tells the client's other processes:
 * they get ROV_CHANGE_PRIV_POST with `key` as its field. */
uint32_t rov_db_priv_post(uint32_t db, uint32_t key, uint32_t len, const void* data);

/* ---- Changes --------------------------------------------------------------------------------- */

/* Registers for the changes of a database, over all processes; once a database handle, a second
 * call replaces the first. ntf->kinds: which, as bits 1 << ROV_CHANGE_*; 0 ends the registration.
 * ntf->revision: the commit after which changes are wanted, 0 for the newest; it comes back as the
 * one that they start from. ntf->fd: becomes readable when a message may be there, for the caller's
 * poll loop, by nothing but waiting; it is the database's, which closes it with the registration.
 * -1 where the process reads a copy, as it may not write to lock.mdb: there will be no more changes.
 * Needs no server. Ends with rov_db_close.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID for a revision that is not there yet; ROV_ERR_IO. */
uint32_t rov_db_ntf(uint32_t db, rov_ntf_t* ntf);

/* Gives the next message, a rov_change_t of *len bytes, into `room` bytes at `msg`. Call it until
 * ROV_ERR_NO_VALUE, which means that there is none now and *len is 0; then poll the descriptor.
 * Changes come in the order of the commits and within them. The database keeps the newest 65,536
 * and no single commit of more than 4,096: a client to whom changes were lost gets ROV_CHANGE_GAP
 * once, reads everything again, and goes on with what follows.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID without a registration; ROV_ERR_LENGTH for less than
 * sizeof(rov_change_t) of room; ROV_ERR_NO_VALUE; a status of the store. */
uint32_t rov_process_msg(uint32_t db, void* msg, uint32_t room, uint32_t* len);

/* 1 when the message is one of this database's, 0 otherwise. Reads 8 bytes at `msg`; NULL gives
 * 0. */
uint32_t rov_msg_is_rov(const void* msg);

/* The user group that is recorded with the commits made through this database handle. */
uint32_t rov_db_usr_group(uint32_t db, uint32_t group);

/* Who a user number of a change stands for. A user is a client's identity (high 32 bits) in a
 * process (low 32 bits: the process's number, or one from 0x80000000 on where the log has another process
 * of that number, an earlier one or one of another namespace); what comes back is of its last commit.
 * Users are known as long as a change of theirs is.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_NO_ITEM for one that has committed nothing. */
uint32_t rov_usr_id_info(uint32_t db, uint64_t user, rov_usr_t* info);

/* ---- Publications ---------------------------------------------------------------------------- */

/* What a data set publishes, as one flat block: its node and every node that can be reached from it
 * over links, each once, breadth first, links in field order, node before node2. docs/database.md
 * has the format. dset_name: 21 bytes, network order; of several data sets of one name the one with
 * the lowest node identifier.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_NO_ITEM for an unknown name; ROV_ERR_PS_SIZE above the
 * limits; ROV_ERR_LENGTH for a short buffer; ROV_ERR_NO_MEM; a status of the store. */
uint32_t rov_ps_datasize(uint32_t ses, const void* dset_name, uint32_t* size);
/* Writes it to `len` bytes at `buf`; what lies beyond it is not touched. */
uint32_t rov_ps_data(uint32_t ses, const void* dset_name, uint32_t len, void* buf);

/* ---- TLV helpers that field callbacks delegate to (see tlvo.h) ------------------------------- */

/* They take and give what the codec hands to a field's callbacks: `iter`, `out`, `len` and `done`
 * of tlvo_encode_fn, `value`, `len` and `iter` of tlvo_decode_fn (rov_types.h). Any thread.
 * Statuses beside those named: ROV_ERR_INVALID for an argument that is NULL and may not be, and the
 * ROV_ERR_TLV_* of the records that they code. Sizes are TLVO_SIZE_FAILED where a status would
 * be. */

/* Encodes a byte string: copies `field_len` bytes at `field` to `out`, which has room for *len
 * bytes, sets *len to `field_len` and *done to 1. ROV_ERR_TLV_ROOM: nothing is copied. */
uint32_t rov_cpy_fld_to_tlv(const void* field, uint32_t field_len, void* out, uint32_t* len,
                            uint32_t* done);
/* Decodes a byte string: copies `len` bytes at `value` into a block from `pool` (mem.h) at *buf,
 * the record's from then on, and sets *buf_len. len 0 gives NULL and 0. What *buf was before is not
 * freed. ROV_ERR_NO_MEM: *buf and *buf_len are left as they were. */
uint32_t rov_tlv_to_bufptr(void** buf, uint32_t* buf_len, rov_mem_ctx_t* pool, const void* value,
                           uint32_t len);

/* Encodes the next element of `record`'s list: the first one while *iter is NULL. *iter then holds
 * the element after it; *done is 1 when there is none. An empty list is done at once, with *len 0.
 * ROV_ERR_TLV_TABLE for a list descriptor that lacks a part. */
uint32_t rov_tlv_from_listel(const tlvo_list_t* list, const void* record, void** iter, void* out,
                             uint32_t* len, uint32_t* done);
/* Decodes one element: allocates it with list->alloc, appends it to `record`'s list, counts it in
 * the bookkeeping word, and decodes into it; *iter holds the tail. The element is in the list, the
 * record's, also when decoding it fails. Allocators take memory from a pool of mem.h.
 * ROV_ERR_TLV_TABLE as above, or when the allocator gave no element; its own status;
 * ROV_ERR_NO_MEM. */
uint32_t rov_tlv_to_listel(const tlvo_list_t* list, void* record, const void* value, uint32_t len,
                           void** iter);
/* Bytes of all elements as attributes, heads and padding included. */
uint32_t rov_tlv_listel_tlvsize(const tlvo_list_t* list, const void* record);
/* Number of elements, counted by walking the list; 0 where the list can't be followed. */
uint32_t rov_tlv_listptr_nels(const tlvo_list_t* list, const void* record);

/* Encodes a union into *len bytes of room at `out`: `type` in network order, then the attributes of
 * the member of that type, whose record is at `body`; *len becomes the bytes written.
 * members: exactly TLVO_UNION_MEMBERS of them are looked at.
 * ROV_ERR_TLV_UNION when there is none of that type; ROV_ERR_TLV_ROOM. */
uint32_t rov_tlva_from_union(uint32_t type, const tlvo_union_t* members, const void* body,
                             uint32_t* len, void* out);
/* Decodes one of `len` bytes at `value` into *type and the member's record at `body`. *type is set
 * before the member is decoded, so that what a failure left in `body` can be freed.
 * ROV_ERR_TLV_UNION for an unknown type, which is not stored; ROV_ERR_TLV_TRUNCATED under 4
 * bytes. */
uint32_t rov_tlva_to_union(uint32_t len, const void* value, const tlvo_union_t* members,
                           uint32_t* type, void* body);
/* Bytes that rov_tlva_from_union would write. */
uint32_t rov_tlva_union_siz(uint32_t type, const tlvo_union_t* members, const void* body);

/* ---- Diagnostics ----------------------------------------------------------------------------- */

/* Debug flags of a database (rov_db_debug). Bits that are not named here are the client's own. */
enum {
  ROV_DBG_FLAG_LOG = 0x00000001,   /* failures of this process's calls go to the logger */
  ROV_DBG_FLAG_ABORT = 0x08000000, /* rov_dbg_abort_chk aborts the process */
  ROV_DBG_FLAG_ALL = 0x10000000    /* answers that there is no such thing are logged, too */
};

/* Registers the logger of a database; NULL takes it away. It gets one line a failure, severity 2,
 * "NAME (0xSTATUS): what, where, what to do about it\n", of every failing call of this process, on
 * the thread of that call, while the database's debug flags ask for it. It must not call back into
 * the database's diagnostics. Ends with rov_db_close.
 * ROV_ERR_HANDLE; ROV_ERR_FULL for more than 64 databases with loggers or flags. */
uint32_t rov_db_reg_logger(uint32_t db, rov_logger_fn logger, void* arg);
/* Sets a database's debug flags, ROV_DBG_FLAG_*. Statuses as above. */
uint32_t rov_db_debug(uint32_t db, uint32_t flags);

/* The calling thread's failures, from the newest backwards; 16 are kept. err->seq: in: 0 for the
 * newest, else a number of an earlier call, to get the failure before that one; out: its number.
 * ROV_ERR_INVALID; ROV_ERR_NO_VALUE when there is none (that is not kept as a failure). */
uint32_t rov_err_getprev(rov_err_t* err);

/* 1 or 0: may the call that failed with `status` succeed when it is made again as it was (the
 * first), or after the client closed its session or database and opened it anew (the second)?
 * tries: how often it was tried already; from 10 on the answer is 0. Any status may be asked for;
 * those of other libraries give 0. */
uint32_t rov_err_retry_ok(uint32_t status, uint32_t tries);
uint32_t rov_cl_err_retry_ok(uint32_t status, uint32_t tries);

/* Shows what `req` asks for, as text through req->out (which must not be NULL): a node by the
 * registered attribute table (rov_reg_show_output) and its data-set name by the registered printer;
 * every data set by the registered one-line printer (rov_reg_dbg_dsetname_print); or the database:
 * counts, revision, registrations, and the readers of all processes with the commit each one holds.
 * What nobody registered for is shown as raw bytes. docs/show.md has the format. req->ses: a
 * session of this database, or 0 for the newest commit. The pieces of text are valid during the
 * call of `out` only, which must not close the session or the database.
 * ROV_ERR_HANDLE; ROV_ERR_INVALID; ROV_ERR_NO_ITEM for an absent node; ROV_ERR_NO_MEM; a status of
 * the store; ROV_ERR_TLV_* when the node's TLV data are damaged: they are shown as far as they
 * go. */
uint32_t rov_db_show_internal(uint32_t db, const rov_show_req_t* req);

/* Aborts the process if ROV_DBG_ABORT is "1" in the environment or a database of the process has
 * the debug flag ROV_DBG_FLAG_ABORT; by default it returns. */
void rov_dbg_abort_chk(void);

#ifdef __cplusplus
}
#endif

#if defined(__GNUC__)
#pragma GCC visibility pop
#endif

#endif
