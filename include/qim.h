/*
 * qim.h - packet policy of a network device as plain typed records.
 *
 * libqimcommon reads policy nodes (filters and their criteria, actions, policers, if/else,
 * groups, defaults, policy instances and the destinations they are enforced at) from the node
 * database and hands them out as fixed-layout records. A client calls qim_lib_init once, opens a
 * session, and reads nodes by identifier; it follows their links, and gets copies that it owns.
 *
 * Conventions
 *  1. Status. Every fallible function returns a uint32_t: 0 is success, 0x4116xxxx is one of
 *     QIM_ERR_*, any other value comes unchanged from the node database (0x4117xxxx, rov.h).
 *     "Database status" below means those.
 *  2. Outputs go through pointers. Node reads and link getters clear their outputs before
 *     anything can fail, so that a failed call leaves zeros. Functions that differ say so.
 *  3. Ownership. What a call returns in a caller's record or buffer is the caller's. Open nodes
 *     (qim_int_node_open) are the library's and live until closed. Arrays of referrers are freed
 *     with free().
 *  4. Lifetime. A record copied out holds no pointer into the library, except where a function
 *     says so.
 *  5. Threads. The library takes no lock. Start-up and shut-down are the client's to serialise.
 *     By default one context serves the process; after qim_lib_tls_init every thread needs a
 *     context of its own. The node cache, qim_dbgmsg and the debug printers' buffers are
 *     process-wide.
 *  6. Byte order. Integers are in host order. What the database or other processes see byte for
 *     byte (database identifiers, data-set names) is in network order where a comment says so.
 *  7. NULL. A pointer argument must not be NULL unless its comment says that it may.
 *  8. Layout. Byte positions are those of the device ABI (32-bit pointers); on 64-bit builds
 *     pointer members widen and what follows them moves. Alignment gaps are named members. The
 *     assertions below hold in every build.
 *  9. Reports. A report is one line, "ERROR STATUS: 0x%x (%.64s/%d)\n" with status, function and a
 *     fixed number, to the logger. When bit 0 of the context's debug flags is set, a function
 *     reports a failure that it detects, and so does every function that hands it on: one failure
 *     makes several reports. Failures that a call then turns into success are reported too: a link
 *     that a node lacks, a buffer too short for arguments. Most internal errors are reported
 *     whatever the flags (QIM_ERR_INTERNAL), and so is a node of the wrong type, as one of them.
 *     These functions report nothing: qim_lib_close, qim_lib_tls_init, qim_link_ptr, the codec, and
 *     those that convert, set or compare, or only hand a call on to the database; nor do these
 *     report some: qim_lib_init QIM_ERR_VDC_RANGE, qim_lib_defaults and the private data of nodes
 *     the database's last answer, qim_pinst_edest_lookup that there are no referrers.
 *
 * This header includes qim_codes.h, the numbers in policy records, and qim_db.h, the sessions, the
 * database's own operations and the diagnostics.
 *
 * Plain C99; usable from C++.
 */
#ifndef QIM_H
#define QIM_H

#include "qim_codes.h"
#include "rov_types.h"

#if defined(__GNUC__)
#define QIM_PACKED __attribute__((packed))
#else
#error "packed records need a compiler with GNU attributes"
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Status codes ============================================================================ */

enum {
  QIM_ERR_GENERIC = 0x41160000,       /* a status that nothing set; no finished call returns it */
  QIM_ERR_NOT_SUPPORTED = 0x41160001, /* qim_upstream_ifelse_get, always */
  QIM_ERR_NODE_TYPE = 0x41160002,     /* the node's type is unknown, or not the one asked for */
  QIM_ERR_INTERNAL = 0x41160003,      /* an internal inconsistency; reported whatever the flags,
                                         but on request only of criteria and of the node cache */
  QIM_ERR_THREAD = 0x41160004,        /* the thread's own context cannot be set up */
  QIM_ERR_INVALID = 0x41160005,       /* a bad argument: identifier 0, an unknown link code, ... */
  QIM_ERR_6 = 0x41160006,             /* not produced */
  QIM_ERR_NO_EDEST = 0x41160008,      /* the policy instance is not enforced at that destination */
  QIM_ERR_VDC_RANGE = 0x4116000c,     /* the database's parameters carry a VDC number above 63 */
  QIM_ERR_BUF_SMALL = 0x4116000d,     /* the caller's buffer is smaller than the data */
  QIM_ERR_NOT_INIT = 0x4116000e,      /* qim_lib_close without a matching qim_lib_init */
  QIM_ERR_DEST_FMT = 0x4116000f,      /* not an interface destination */
  QIM_ERR_NO_MEM = 0x41160010         /* out of memory */
};

/* ==== Library context ========================================================================= */

/* The library's context, 136 bytes: one for the process, or one for each thread
 * (qim_lib_tls_init). */
typedef struct qim_lib_ctx {
  uint32_t rov_lib;        /*   0: database-library handle */
  uint32_t init_id;        /*   4: identity given to qim_lib_init; non-zero once initialised */
  uint32_t init_arg;       /*   8: its `arg`, kept only */
  rov_db_parms_t db_parms; /*  12: the database's: memory pool, VDC, logger, debug flags */
  uint32_t reserved0[3];   /* 112 */
  uint32_t init_flags;     /* 124: flags given to qim_lib_init */
  uint32_t reserved1;      /* 128 */
  int32_t use_count;       /* 132: starts that were counted and not yet taken back */
} qim_lib_ctx_t;
ROV_ASSERT_SIZE(qim_lib_ctx_t, 136);
ROV_ASSERT_AT(qim_lib_ctx_t, db_parms, 12);
ROV_ASSERT_AT(qim_lib_ctx_t, init_flags, 124);
ROV_ASSERT_AT(qim_lib_ctx_t, use_count, 132);

/* qim_lib_ctx_t.db_parms.dbg_flags */
#define QIM_DBG_REPORT 0x00000001u /* functions report their failures */
#define QIM_DBG_ALL 0x10000000u    /* reports print statuses outside the listed set too */
#define QIM_DBG_STRICT 0x80000000u /* every listed status reaches the database's abort check */

/* qim_lib_init flags */
#define QIM_INIT_AGAIN \
  0x00000400u /* in a call's flags or the context's: a further start of the context is allowed */

/* The calling thread's context: the process's, or after qim_lib_tls_init the thread's own. Never
 * NULL. Aborts the process in a thread that has none although per-thread contexts are on: that
 * is a programming error. */
qim_lib_ctx_t* qim_lib_get(void);

/* Gives the calling thread a context of its own, a copy of the process's as it stands. From the
 * first call in any thread on, QIM_ERR_NO_MEM or not, every thread that uses the library needs one,
 * the first thread included. `unused` is ignored.
 * The copy carries the process's use_count: every thread can take back the process's start, and two
 * threads that do close one database handle twice. Let one of them. What a thread starts itself is
 * its own: contexts of other threads know nothing of it.
 * A second call in a thread discards its context and the starts that it made there: qim_lib_close
 * knows them no more, and their databases stay open until rov_db_close. Contexts are never freed.
 * Returns 0; QIM_ERR_THREAD, in every thread for good when the process's key could not be created
 * (the process's context then goes on serving); QIM_ERR_NO_MEM. */
uint32_t qim_lib_tls_init(uint32_t unused);
uint32_t qim_lib_tls_init_int(void);

/* Optional first step: starts the database library under the identity `id` unless that was done,
 * and hands it `arg`: the idle limit of its sessions in seconds, 0 = none (rov_lib_defaults).
 * Returns 0 or a database status. */
uint32_t qim_lib_defaults(uint32_t id, uint32_t arg);

/* Starts the library: opens the database into *db_out (0 until it is open) and registers the
 * library's callbacks with it.
 *  a1, a2, a6  handed to the database unchanged
 *  id          the client's identity; private data in the database belongs to it
 *  arg         kept in the context
 *  parms       database parameters, or NULL for the defaults; `id` is written into
 *              parms->p.init_id
 *  flags       database open flags; QIM_INIT_AGAIN is the library's own
 *  rov_lib     a database-library handle to use, or 0 to start that library; where the context has
 *              one (qim_lib_defaults, an earlier start, also one that failed) that one, or 0
 * Again in an initialised context: the same id, no difference between `flags` and the context's
 * init_flags in the bits 0x40000063, and QIM_INIT_AGAIN in one of the two. If init_flags have it,
 * the context is refreshed: db_parms become those of the database just opened, init_arg and
 * init_flags those of this call. A logger and debug flags that were set through an earlier handle
 * vanish unless `parms` has them, and so does QIM_INIT_AGAIN unless `flags` have it.
 * Each success is counted in use_count and needs one qim_lib_close. One failure is counted, too: a
 * start that refreshes nothing returns the status of its last registration with the database
 * (rov_reg_dbg_dsetname_print) although all is ready. After any other failure a *db_out that is
 * not 0 is a database that stays open, to be closed with rov_db_close; the context's rov_lib stays
 * for the next start.
 * Returns 0; QIM_ERR_INVALID; QIM_ERR_VDC_RANGE (the context then holds the new parameters and is
 * initialised: another start with QIM_INIT_AGAIN and its qim_lib_close clear it); a database
 * status. */
uint32_t qim_lib_init(uint32_t a1, uint32_t a2, uint32_t id, uint32_t arg, rov_parms_t* parms,
                      uint32_t a6, uint32_t flags, uint32_t rov_lib, uint32_t* db_out);

/* Takes back one qim_lib_init; the last one clears the context. `db` and `arg` go to the database:
 * when it refuses to close, the start is taken back all the same.
 * Returns 0; QIM_ERR_NOT_INIT, without asking the database; the database's status. */
uint32_t qim_lib_close(uint32_t db, uint32_t arg);

/* rov_lib_init_locks with the context's own database-library handle in place of `lib`. */
uint32_t qim_lib_init_locks(uint32_t lib, uint32_t wait_ms, uint32_t retry_ms, uint32_t holders,
                            uint32_t flags);

/* Fills a parameter block with version `version` of the defaults: rov_db_init_parms_init. */
uint32_t qim_db_init_parms_init(rov_parms_t* parms, uint32_t version);
/* rov_db_set_ps_sizes. */
uint32_t qim_db_set_ps_sizes(uint32_t db, uint32_t max_nodes, uint32_t max_bytes);

/* ==== Error reporting ========================================================================= */

/* The last report's text, at most 510 characters, for the whole process, unlocked. */
extern char qim_dbgmsg[512];
/* A word for clients; the library neither reads nor writes it. */
extern uint32_t qim_dbg;

/* Reports `status`, found by `function` (cut at 64 characters) at `line`: formats qim_dbgmsg and
 * hands it to the context's logger with severity 2 if there is a logger and the status is one of
 * the listed set (all of QIM_ERR_* but QIM_ERR_NODE_TYPE and QIM_ERR_NO_EDEST) or QIM_DBG_ALL is
 * set. Then, for a listed status, runs the database's abort check when ctx is NULL,
 * QIM_DBG_STRICT is set, or the status is QIM_ERR_INTERNAL. ctx may be NULL. */
void qim_dbg_errors(uint32_t status, const char* function, int32_t line, qim_lib_ctx_t* ctx);

/* ==== Node identifiers ======================================================================== */

/* A node's identifier: class (bits 31 to 26), space (25 to 20), index (19 to 0). 0 names no
 * node. */
typedef uint32_t qim_node_id_t;

/* A private identifier: class 0, space 3, the low 20 bits of `index`. */
qim_node_id_t qim_node_id_priv_create(uint32_t index);
/* Splits an identifier: returns the class, stores space and index. Either pointer may be NULL. */
uint32_t qim_node_id_fields(qim_node_id_t id, uint32_t* space, uint32_t* index);
/* Converts to the database's form. Returns 0, or QIM_ERR_INVALID for id 0 with *out all zero. */
uint32_t qim_to_rov_node_id(qim_node_id_t id, rov_node_id_t* out);
/* The same without the check, for places where 0 is legal. */
void qim_to_rov_node_id_nochk(qim_node_id_t id, rov_node_id_t* out);
/* Converts from the database's form; only the first word is read. */
qim_node_id_t qim_from_rov_node_id(const rov_node_id_t* in);
/* Callbacks for the database: convert the first word of a database identifier in place. */
void rov_node_id_to_qim(uint32_t* word);
void rov_node_id_from_qim(uint32_t* word);

/* ==== Policy destinations ===================================================================== */

/* qim_policy_dest_t.fmt */
enum { QIM_DEST_IF = 1, QIM_DEST_SRV = 2, QIM_DEST_GEN = 3 };

/* An interface. Packed, bytes 13 to 15 zero. */
typedef struct qim_dest_if {
  uint8_t fmt;         /*  0: QIM_DEST_IF */
  uint32_t ifix;       /*  1: interface index */
  uint32_t vrf;        /*  5 */
  uint16_t vlan;       /*  9 */
  uint16_t vdc;        /* 11 */
  uint8_t reserved[3]; /* 13 */
} QIM_PACKED qim_dest_if_t;

/* A service. Packed, bytes 11 to 15 zero. */
typedef struct qim_dest_srv {
  uint8_t fmt;         /*  0: QIM_DEST_SRV */
  uint32_t srv_id;     /*  1 */
  uint32_t srv_def;    /*  5 */
  uint16_t srv_vdc;    /*  9 */
  uint8_t reserved[5]; /* 11 */
} QIM_PACKED qim_dest_srv_t;

/* A destination of the generic format, whose fields are carried and compared, never interpreted.
 * Packed. */
typedef struct qim_dest_gen {
  uint8_t fmt;   /*  0: QIM_DEST_GEN */
  uint16_t vdc;  /*  1 */
  uint8_t v8;    /*  3 */
  uint16_t v16a; /*  4 */
  uint16_t v16b; /*  6 */
  uint32_t v32a; /*  8 */
  uint32_t v32b; /* 12 */
} QIM_PACKED qim_dest_gen_t;

/* Where a policy is enforced: 16 bytes, laid out by the first. Host order, but for those inside
 * a stored name. */
typedef union qim_policy_dest {
  uint8_t fmt; /* QIM_DEST_* */
  qim_dest_if_t intf;
  qim_dest_srv_t srv;
  qim_dest_gen_t gen;
  uint8_t bytes[16];
} qim_policy_dest_t;
ROV_ASSERT(size_qim_dest_if, sizeof(qim_dest_if_t) == 16);
ROV_ASSERT(size_qim_dest_srv, sizeof(qim_dest_srv_t) == 16);
ROV_ASSERT(size_qim_dest_gen, sizeof(qim_dest_gen_t) == 16);
ROV_ASSERT(size_qim_policy_dest, sizeof(qim_policy_dest_t) == 16);
ROV_ASSERT(at_qim_dest_if_vdc, offsetof(qim_dest_if_t, vdc) == 11);
ROV_ASSERT(at_qim_dest_srv_vdc, offsetof(qim_dest_srv_t, srv_vdc) == 9);
ROV_ASSERT(at_qim_dest_gen_v32b, offsetof(qim_dest_gen_t, v32b) == 12);

/* Fills an interface destination. A vdc of 0 becomes the context's VDC when its parameters ask
 * for that default. */
void qim_if_policy_dest_set(uint16_t vdc, uint32_t vrf, uint16_t vlan, uint32_t ifix,
                            qim_policy_dest_t* dest);
/* Reads an interface destination. Returns 0, or QIM_ERR_DEST_FMT for another format, with every
 * output 0. */
uint32_t qim_if_policy_dest_get2(const qim_policy_dest_t* dest, uint16_t* vdc, uint32_t* vrf,
                                 uint16_t* vlan, uint32_t* ifix);
/* The older form: the low 16 bits of the VRF. */
uint32_t qim_if_policy_dest_get(const qim_policy_dest_t* dest, uint16_t* vdc, uint16_t* vrf,
                                uint16_t* vlan, uint32_t* ifix);
/* Fills a service destination; its VDC stays 0. */
void qim_srv_policy_dest_set(uint32_t srv_id, uint32_t srv_def, qim_policy_dest_t* dest);
/* 0 when both name the same place, else the first difference found (its sign is no order for
 * 32-bit fields). Bytes that the format does not use are not compared. Destinations of an
 * unknown format never compare equal: -1. */
int32_t qim_policy_dest_cmp(const qim_policy_dest_t* a, const qim_policy_dest_t* b);
/* Returns QIM_ERR_NOT_SUPPORTED whatever the arguments. */
uint32_t qim_upstream_ifelse_get(uint32_t a, uint32_t b, uint32_t c);

/* ==== Data-set names ========================================================================== */

/* The name under which a policy instance is published: 21 bytes, no padding, network order
 * wherever it is stored, passed to the database or returned. */
typedef struct qim_dsetname {
  qim_policy_dest_t dest; /*  0 */
  uint32_t type;          /* 16: policy type */
  uint8_t dir;            /* 20: QIM_DIR_IN, any other value is output */
} QIM_PACKED qim_dsetname_t;
ROV_ASSERT(size_qim_dsetname, sizeof(qim_dsetname_t) == 21);
ROV_ASSERT(at_qim_dsetname_dir, offsetof(qim_dsetname_t, dir) == 20);

enum { QIM_DIR_IN = 1 };

/* A name decoded: 24 bytes, host order. */
typedef struct qim_pinst_fields {
  qim_policy_dest_t dest; /*  0 */
  uint8_t dir;            /* 16 */
  uint8_t reserved[3];    /* 17 */
  uint32_t type;          /* 20 */
} qim_pinst_fields_t;
ROV_ASSERT(size_qim_pinst_fields, sizeof(qim_pinst_fields_t) == 24);
ROV_ASSERT(at_qim_pinst_fields_type, offsetof(qim_pinst_fields_t, type) == 20);

/* Which fields of a name each format uses: the most significant bit of every field in use is
 * set. Host order at load; qim_lib_init converts them once with qim_dsetname_hton. Their format
 * byte names no format, so that all three are converted by the interface layout. */
extern qim_dsetname_t qim_pinstflds_if;
extern qim_dsetname_t qim_pinstflds_srv;
extern qim_dsetname_t qim_pinstflds_gen;

/* Convert a name in place to network order and back. An unknown format converts as an interface
 * name. A name that is constant, or that somebody else uses meanwhile, is not for these, nor for
 * the other functions that convert in place, those that restore it included: convert a copy. */
void qim_dsetname_hton(qim_dsetname_t* name);
void qim_dsetname_ntoh(qim_dsetname_t* name);
/* Builds the name of an interface policy; vdc as in qim_if_policy_dest_set. */
void qim_dsetname_for_if_policy(uint32_t type, uint8_t dir, uint16_t vdc, uint32_t vrf,
                                uint16_t vlan, uint32_t ifix, qim_dsetname_t* out);
/* Builds a name from decoded fields. Bytes that the format does not use are 0 in it. */
void qim_pinst_to_dsetname(const qim_pinst_fields_t* pinst, qim_dsetname_t* out);
/* Decodes a name. `name` is converted to host order in place and left so: no shared name.
 * out->reserved is not written. */
void qim_pinst_from_dsetname(qim_pinst_fields_t* out, qim_dsetname_t* name);
/* Callback for the database: the policy type in a record's data-set name, which is converted in
 * place for the call and restored. */
uint32_t qim_extract_pinst_from_sub(const rov_sub_t* sub);

/* ==== Links =================================================================================== */

/* A link of a node, 16 bytes. */
typedef struct qim_link {
  qim_node_id_t node;  /*  0: the node it leads to, 0 = none */
  qim_node_id_t node2; /*  4: a second node, 0 = none */
  uint32_t val;        /*  8 */
  uint16_t tag;        /* 12 */
  uint16_t field;      /* 14 */
} qim_link_t;
ROV_ASSERT(size_qim_link, sizeof(qim_link_t) == 16);

/* ==== Node records ============================================================================ */

/* A slot `ln_XXX` holds the node's link of field code 0xXXX: a bare node identifier, or a whole
 * qim_link_t. All zero when the node has no such link. QIM_LN_* names the codes. */

/* A match criterion. 16 bytes. */
typedef struct qim_criterion {
  struct qim_criterion* next; /*  0: NULL at the end */
  uint32_t type;              /*  4 */
  uint32_t args_len;          /*  8: bytes at args */
  uint8_t* args;              /* 12: opaque arguments. args_len 0: NULL in an open node, not NULL
                                 in what qim_filter_criteria_get builds */
} qim_criterion_t;
ROV_ASSERT_SIZE(qim_criterion_t, 16);
ROV_ASSERT_AT(qim_criterion_t, args, 12);

/* A filter: does a packet meet all criteria? 36 bytes. */
typedef struct qim_filter {
  qim_node_id_t ln_081;  /*  0 */
  uint32_t flags;        /*  4 */
  uint32_t match;        /*  8: link kind taken when it matches */
  uint32_t nomatch;      /* 12: link kind taken when it does not */
  uint32_t crit_cnt;     /* 16: number of criteria */
  uint32_t crit_bytes;   /* 20: room that qim_filter_criteria_get needs: the sum of 32 + args_len */
  uint32_t crit_aux;     /* 24: the decoder's bookkeeping */
  uint32_t reserved;     /* 28 */
  qim_criterion_t* crit; /* 32: the criteria; NULL in a copy (see qim_node_readall) */
} qim_filter_t;
ROV_ASSERT_SIZE(qim_filter_t, 36);
ROV_ASSERT_AT(qim_filter_t, crit, 32);

/* An action. 16 bytes. */
typedef struct qim_action {
  qim_node_id_t ln_141; /*  0 */
  uint32_t type;        /*  4 */
  uint32_t args_len;    /*  8: bytes of arguments */
  uint8_t* args;        /* 12: opaque arguments; NULL in a copy (see qim_node_readall) */
} qim_action_t;
ROV_ASSERT_SIZE(qim_action_t, 16);
ROV_ASSERT_AT(qim_action_t, args, 12);

/* An if/else: nothing but its four links. 64 bytes. */
typedef struct qim_ifelse {
  qim_link_t ln_241; /*  0 */
  qim_link_t ln_242; /* 16 */
  qim_link_t ln_243; /* 32 */
  qim_link_t ln_244; /* 48 */
} qim_ifelse_t;
ROV_ASSERT(size_qim_ifelse, sizeof(qim_ifelse_t) == 64);

/* A hierarchical filter. 36 bytes. */
typedef struct qim_hfilter {
  qim_node_id_t ln_081; /*  0 */
  uint32_t true_act;    /*  4: link kind taken on a true result */
  uint32_t false_act;   /*  8: link kind taken on a false result */
  uint32_t nomatch_act; /* 12: link kind taken when nothing matched */
  uint32_t type;        /* 16 */
  qim_link_t ln_102;    /* 20 */
} qim_hfilter_t;
ROV_ASSERT(size_qim_hfilter, sizeof(qim_hfilter_t) == 36);

/* A hierarchical action. 24 bytes. */
typedef struct qim_haction {
  qim_node_id_t ln_141; /*  0 */
  uint32_t type;        /*  4 */
  qim_link_t ln_182;    /*  8 */
} qim_haction_t;
ROV_ASSERT(size_qim_haction, sizeof(qim_haction_t) == 24);

/* A bandwidth. 32 bytes. */
typedef struct qim_action_bw {
  uint32_t rate_units;  /*  0: unit of rate */
  uint32_t gap0;        /*  4 */
  uint64_t rate;        /*  8 */
  uint32_t burst_units; /* 16: unit of burst */
  uint32_t gap1;        /* 20 */
  uint64_t burst;       /* 24 */
} qim_action_bw_t;
ROV_ASSERT(size_qim_action_bw, sizeof(qim_action_bw_t) == 32);

/* A policer. 128 bytes. */
typedef struct qim_police {
  qim_node_id_t ln_141;    /*   0 */
  qim_link_t ln_201;       /*   4 */
  qim_link_t ln_202;       /*  20 */
  qim_link_t ln_203;       /*  36 */
  uint32_t gap0;           /*  52 */
  qim_action_bw_t comt_bw; /*  56: committed bandwidth */
  qim_action_bw_t peak_bw; /*  88: peak bandwidth */
  uint32_t reserved[2];    /* 120 */
} qim_police_t;
ROV_ASSERT(size_qim_police, sizeof(qim_police_t) == 128);
ROV_ASSERT(at_qim_police_comt_bw, offsetof(qim_police_t, comt_bw) == 56);

/* A group. 28 bytes. */
typedef struct qim_group {
  qim_node_id_t ln_282; /*  0: 0 in a copy; qim_link_field_get reads it */
  uint32_t type;        /*  4: QIM_GROUP_IFELSE makes it count as an if/else filter */
  uint32_t subtype;     /*  8 */
  qim_link_t ln_281;    /* 12 */
} qim_group_t;
ROV_ASSERT(size_qim_group, sizeof(qim_group_t) == 28);

enum { QIM_GROUP_IFELSE = 1 };

/* A default. 32 bytes. */
typedef struct qim_def {
  qim_node_id_t ln_301; /*  0 */
  qim_link_t ln_302;    /*  4 */
  uint32_t type;        /* 20 */
  uint32_t args_len;    /* 24: bytes of arguments */
  uint8_t* args;        /* 28: opaque arguments; NULL in a copy (see qim_node_readall) */
} qim_def_t;
ROV_ASSERT_SIZE(qim_def_t, 32);
ROV_ASSERT_AT(qim_def_t, args, 28);

/* A policy instance, an enforcement destination, or a data-set node with a name. 48 bytes. */
typedef struct qim_pinst {
  qim_pinst_fields_t fields; /*  0: from the node's data-set name */
  uint32_t edests;           /* 24: enforcement destinations: refs, for every referrer counts as
                                one; 0 for QIM_NODE_DSET */
  uint32_t nonedests;        /* 28: referrers that are none: 0 */
  qim_link_t ln_2c1;         /* 32: of an enforcement destination, leads to its policy instance */
} qim_pinst_t;
ROV_ASSERT(size_qim_pinst, sizeof(qim_pinst_t) == 48);

/* The type-specific part of a node. 128 bytes. */
typedef union qim_node_body {
  qim_filter_t filter;   /* QIM_NODE_FILTER */
  qim_action_t action;   /* QIM_NODE_ACTION */
  qim_ifelse_t ifelse;   /* QIM_NODE_IFELSE */
  qim_hfilter_t hfilter; /* QIM_NODE_HFILTER */
  qim_haction_t haction; /* QIM_NODE_HACTION */
  qim_police_t police;   /* QIM_NODE_POLICE */
  qim_group_t group;     /* QIM_NODE_GROUP */
  qim_pinst_t pinst;     /* QIM_NODE_PINST, QIM_NODE_EDEST, QIM_NODE_DSET */
  qim_def_t def;         /* QIM_NODE_DEF */
} qim_node_body_t;
ROV_ASSERT(size_qim_node_body, sizeof(qim_node_body_t) == 128);

/* A node. 168 bytes. */
typedef struct qim_node {
  uint32_t links_total;   /*  0: links the node has */
  uint32_t links_unfixed; /*  4: those that no slot of the body holds */
  uint32_t refs;          /*  8: nodes that refer to it */
  qim_node_id_t id;       /* 12 */
  uint32_t group;         /* 16: group number */
  uint32_t type;          /* 20: QIM_NODE_*, chooses the body */
  uint32_t flags;         /* 24: carried unchanged */
  uint32_t priv_len;      /* 28: bytes of the client's private data */
  uint8_t* priv_buf;      /* 32: that data; NULL in a copy (qim_node_priv_get, qim_node_readall) */
  uintptr_t priv_ptr;     /* 36: the client's private pointer value */
  qim_node_body_t body;   /* 40 */
} qim_node_t;
ROV_ASSERT_SIZE(qim_node_t, 168);
ROV_ASSERT_AT(qim_node_t, priv_buf, 32);
ROV_ASSERT_AT(qim_node_t, body, 40);

/* 1 or 0: is it a Filter or Hfilter / an Action, Haction or Police / a Filter, an Hfilter, or a
 * Group of body type QIM_GROUP_IFELSE. */
int qim_is_filterlist_type(const qim_node_t* node);
int qim_is_actionlist_type(const qim_node_t* node);
int qim_is_ifelse_filter_type(const qim_node_t* node);

/* ==== TLV codec =============================================================================== */

/* Allocates `size` zeroed bytes from the context's pool into *out and the size into *out_size;
 * both are 0 on failure. The block is the caller's, who frees it with
 * mem_free(block, &ctx->db_parms.mem) of mem.h, ctx being that context; size 0 gives NULL.
 * Returns 0 or the allocator's status. */
uint32_t qim_tlv_struct_alloc(uint32_t size, void** out, uint32_t* out_size);

/* Convert records to TLV data and back.
 *
 * What the database stores is a node: qim_node_to_tlv makes of a qim_node_t what rov_edit_node_put
 * takes; the other kinds are its parts. Of a node the encoder takes group, flags, type and
 * the member of body that the type chooses. It does not look at id, which rov_edit_node_t has, at the
 * ln_* slots, which are records of their own (rov_edit_link_put), at what is counted (links_total,
 * refs, priv_len, crit_cnt, crit_bytes, edests), nor at fields of a qim_pinst_t, which are the data-set
 * name: leave them 0. Criteria are counted by their list, which begins at crit.
 *
 * Every record kind K has a descriptor table qim_K_tbl (the head; the field descriptors follow
 * it) and four functions:
 *  qim_K_to_struct      decodes `len` bytes at `tlv`. Returns 0 or a database status. flags:
 *                       TLVO_DEC_IN_PLACE = 1: into the record at *record, which must be zeroed:
 *                       what has no attribute is not written, and lists are appended to. After a
 *                       failure the record holds what decoding got to.
 *                       0: into a new record at *record, NULL after a failure. It is of the
 *                       process's own pool: mem_free(record, NULL).
 *                       Either way what hangs in the record, list elements and byte strings, is
 *                       the caller's, too. Each is freed by itself as a block of
 *                       qim_tlv_struct_alloc is, before the record.
 *  qim_K_to_tlv         encodes a record into `room` bytes at `tlv`; *len receives the bytes,
 *                       *count the top-level attributes (either may be NULL); flags: 0. Returns
 *                       0 or a database status.
 *  qim_K_get_tlv_sz     the encoded size in bytes, 0xffffffff on failure. Of a record that encoding
 *                       refuses it may be given all the same: arguments with a length and no bytes.
 *  qim_K_get_struct_sz  the bytes of the fixed record that `tlv` decodes into, 0xffffffff on
 *                       failure. */
#define QIM_CODEC_KINDS(X) \
  X(criterion)             \
  X(filter)                \
  X(hfilter) X(action) X(haction) X(action_bw) X(police) X(ifelse) X(def) X(group) X(pinst) X(node)

#define QIM_CODEC_DECLARE(K)                                                                    \
  extern const tlvo_table_t qim_##K##_tbl;                                                      \
  uint32_t qim_##K##_to_struct(qim_##K##_t** record, const void* tlv, uint32_t len,             \
                               uint32_t flags);                                                 \
  uint32_t qim_##K##_to_tlv(const qim_##K##_t* record, void* tlv, uint32_t room, uint32_t* len, \
                            uint32_t* count, uint32_t flags);                                   \
  uint32_t qim_##K##_get_tlv_sz(const qim_##K##_t* record);                                     \
  uint32_t qim_##K##_get_struct_sz(const void* tlv);
QIM_CODEC_KINDS(QIM_CODEC_DECLARE)
#undef QIM_CODEC_DECLARE

/* ==== Link access ============================================================================= */

/* Read a link of node `node_id` from the database into *link, zeroed first. `field`: link field
 * code. A missing link gives the database's ROV_ERR_NO_LINK. qim_link_get hands all 32 bits of
 * the code on. qim_link_opt_get asks for the variant of the code with bit 15 set.
 * Return 0; QIM_ERR_INVALID for node_id 0; a database status. */
uint32_t qim_link_field_get(uint32_t ses, qim_node_id_t node_id, uint16_t field, qim_link_t* link);
uint32_t qim_link_get(uint32_t ses, qim_node_id_t node_id, uint32_t field, qim_link_t* link);
uint32_t qim_link_opt_get(uint32_t ses, qim_node_id_t node_id, uint32_t field, qim_link_t* link);

/* Finds the slot of a node record that holds link `field`: *single or *full (either output may
 * be NULL) points into the record, the other is NULL; both are NULL when nodes of that type have
 * no such link. Makes no database call.
 * Returns 0, or QIM_ERR_INVALID for a code that no record holds. */
uint32_t qim_link_ptr(const qim_node_t* node, uint16_t field, const qim_node_id_t** single,
                      const qim_link_t** full);

/* The value of a node's link, from the record, or from the database for codes with bit 15 set.
 * The node's type must have the link: asking a node for another type's link is a programming
 * error and faults.
 * Returns 0; QIM_ERR_INVALID for an unknown code; a database status. */
uint32_t qim_link_val(uint32_t ses, const qim_node_t* node, uint16_t field, qim_link_t* link);

/* ==== Open nodes ============================================================================== */

/* An open node in its block, 176 bytes. Clients are handed the address of `node`. */
typedef struct qim_node_cache_entry {
  struct qim_node_cache_entry* next; /* 0: next entry toward the cache's tail */
  uint32_t ses;                      /* 4: the session it was opened through */
  qim_node_t node;                   /* 8 */
} qim_node_cache_entry_t;
ROV_ASSERT_SIZE(qim_node_cache_entry_t, 176);
ROV_ASSERT_AT(qim_node_cache_entry_t, node, 8);

/* Opens a node: reads, decodes and resolves it into *node_out, NULL on failure. The open node is
 * the library's; give it back with qim_int_node_close, and do not keep it over calls that may
 * open other nodes.
 *  node_id  0 takes the identifier from `parms`
 *  parms    the node's parameters, or NULL to fetch them
 *  type     the type required (not looked at when the cache answers), 0 = any
 * Returns 0; QIM_ERR_INVALID; QIM_ERR_NODE_TYPE; QIM_ERR_INTERNAL (a bare-identifier link that
 * carries more); a database status. When decoding or resolving fails, or the type is not the one
 * required, the lists and byte strings that the decoder had allocated for the record stay
 * allocated; everything else is freed. When only a scratch buffer cannot be freed, that status
 * is returned with the node set. */
uint32_t qim_int_node_open(uint32_t ses, qim_node_id_t node_id, const rov_node_parms_t* parms,
                           int32_t type, qim_node_t** node_out, qim_lib_ctx_t* lib);
/* Gives an open node back: frees it unless the cache holds it. Returns what qim_lib_node_destroy
 * returns, or 0. */
uint32_t qim_int_node_close(qim_node_t* node, qim_lib_ctx_t* lib);
/* Frees an entry and everything it owns. Stops at the first failure: QIM_ERR_INTERNAL for a
 * buffer without a length or a length without a buffer, or the allocator's status; what was not
 * freed yet stays. */
uint32_t qim_lib_node_destroy(qim_node_cache_entry_t* entry, qim_lib_ctx_t* lib);

/* ==== Node cache ============================================================================== */

/* The process-wide list of open nodes, most recently used first. Its capacity is 0: it keeps
 * nothing, adding does nothing, and every lookup misses. NULL when empty. */
extern qim_node_cache_entry_t* node_cache_head;
extern qim_node_cache_entry_t* node_cache_tail;

/* Looks (ses, node_id) up; a hit moves to the head. *out is the entry or NULL. Returns 0. */
uint32_t qim_node_cache_get(uint32_t ses, qim_node_id_t node_id, qim_node_cache_entry_t** out);
/* Puts an entry at the head, frees an older one under its key (`ses` and its node), and evicts from
 * the tail what was opened through entry->ses. Returns 0. */
uint32_t qim_node_cache_add(uint32_t ses, qim_node_cache_entry_t* entry, qim_lib_ctx_t* lib);
/* Takes the entry out of the list without freeing it. out may be NULL. The entry's `next` keeps
 * its value, so the caller frees it with qim_lib_node_destroy. Returns 0. */
uint32_t qim_node_cache_unlink(uint32_t ses, qim_node_id_t node_id, qim_node_cache_entry_t** out);
/* Takes the entry out and frees it. Returns 0 (also when there is none), or what
 * qim_lib_node_destroy returns. */
uint32_t qim_node_cache_rm(uint32_t ses, qim_node_id_t node_id, qim_lib_ctx_t* lib);
/* qim_node_cache_rm of node->id: the next open reads the database. */
uint32_t qim_node_cache_replace(uint32_t ses, const qim_node_t* node, qim_lib_ctx_t* lib);
/* Empties the cache. A failure to free stops it and is reported, not returned. Returns 0. */
uint32_t qim_node_cache_destroy(qim_lib_ctx_t* lib);

/* ==== Node copy and read ====================================================================== */

/* Copies a node's values, none of its pointers, into *dst. `ses` is ignored. Group.ln_282 is not
 * copied. A type that is none of QIM_NODE_* gives QIM_ERR_NODE_TYPE with the header copied.
 * Returns 0 otherwise. */
uint32_t qim_node_cp(uint32_t ses, const qim_node_t* src, qim_node_t* dst);

/* Reads a node into the caller's record, cleared first.
 *  parms    the node's parameters, or NULL to fetch them; qim_node_read passes none
 *  type     QIM_NODE_*, the type required, 0 = any; not looked at when the cache answers. It is
 *           signed, and qim_node_t.type is not, in the interface of devices
 * Returns 0; QIM_ERR_INVALID for node_id 0; QIM_ERR_NODE_TYPE; a database status. *dst stays
 * zero on failure, except that a node whose close failed is fully copied.
 * qim_node_read_no_nedest is the same as qim_node_read. */
uint32_t qim_node_read_int(uint32_t ses, qim_node_id_t node_id, const rov_node_parms_t* parms,
                           int32_t type, qim_node_t* dst);
uint32_t qim_node_read(uint32_t ses, qim_node_id_t node_id, int32_t type, qim_node_t* dst);
uint32_t qim_node_read_no_nedest(uint32_t ses, qim_node_id_t node_id, int32_t type,
                                 qim_node_t* dst);

/* ==== References ============================================================================== */

/* The referrer of node `node_id` at `index` (from 0, in the database's order) into *ref, which is 0
 * when there is none: walk with 0, 1, 2, ... until it is. qim_node_ref_get is the same.
 * Return 0; QIM_ERR_INVALID for node_id 0; a database status. */
uint32_t qim_ref_get(uint32_t ses, qim_node_id_t node_id, uint32_t index, qim_node_id_t* ref);
uint32_t qim_node_ref_get(uint32_t ses, qim_node_id_t node_id, uint32_t index, qim_node_id_t* ref);

/* All referrers of a node (an open node or a copy): node->refs identifiers in *refs, which the
 * caller frees with free(), and their number in *count. The number is that of the time the node was
 * read; what the database no longer holds comes back as 0. NULL and 0 without referrers and on
 * failure; a logger that looks at them during the call may see an array still.
 * Returns 0; QIM_ERR_INVALID for a node of identifier 0; QIM_ERR_NO_MEM; a database status. */
uint32_t qim_ref_get_all(uint32_t ses, const qim_node_t* node, qim_node_id_t** refs,
                         uint32_t* count);

/* ==== Enforcement destinations ================================================================ */

/* Finds the enforcement destination of policy instance `pinst` (an open node or a copy, of type
 * QIM_NODE_PINST) at `dest`, and copies it into *out as qim_node_cp does, clearing nothing first.
 * out may be NULL. First by the name that it would bear, unless the session has more than 1023 data
 * sets; then among the referrers of the policy instance, of which the first match is taken.
 * Returns 0; QIM_ERR_NO_EDEST; what opening a node returns; QIM_ERR_NO_MEM; a database status. */
uint32_t qim_pinst_edest_lookup(uint32_t ses, const qim_node_t* pinst,
                                const qim_policy_dest_t* dest, qim_node_t* out);
/* The same for a policy instance by identifier. QIM_ERR_NODE_TYPE when it is none. */
uint32_t qim_pinst_edest_name_get(uint32_t ses, qim_node_id_t pinst_id,
                                  const qim_policy_dest_t* dest, qim_node_t* out);

/* Copies the n-th (from 0) enforcement destination among the referrers of a policy instance into
 * *out (may be NULL). *count is the number of those before it, which is all of them when there is
 * no n-th: QIM_ERR_INVALID is returned then. qim_pinst_edest_get keeps the count to itself.
 * Return 0; QIM_ERR_INVALID; what opening or closing a node returns; a database status. */
uint32_t qim_pinst_edest_get_int(uint32_t ses, qim_node_id_t pinst_id, uint32_t n, qim_node_t* out,
                                 uint32_t* count);
uint32_t qim_pinst_edest_get(uint32_t ses, qim_node_id_t pinst_id, uint32_t n, qim_node_t* out);

/* ==== Policy instances of data sets =========================================================== */

/* Read the node of a data set into *out, whatever its type (QIM_NODE_DSET and QIM_NODE_DSET_NONAME
 * included): the one that `selector` names in the session (rov_ses_dset_get), the one whose name
 * the fields of `pinst` yield, and the one that `selector` names within a node (rov_node_dset_get).
 * *out is not touched when the database does not find the data set, and cleared otherwise.
 * Return 0; what qim_node_read_int returns; QIM_ERR_INVALID for node_id 0; a database status. */
uint32_t qim_ses_pinst_get(uint32_t ses, uint32_t selector, qim_node_t* out);
uint32_t qim_ses_pinst_name_get(uint32_t ses, const qim_pinst_t* pinst, qim_node_t* out);
uint32_t qim_node_pinst_get(uint32_t ses, qim_node_id_t node_id, uint32_t selector,
                            qim_node_t* out);

/* ==== Private data of nodes =================================================================== */

/* What the client keeps on a node: a byte buffer, which the database stores, and a pointer value,
 * which lives as long as the process. Another client (another identity) never sees either.
 * qim_node_priv_get copies the buffer into `len` bytes at `buf`; the node's priv_len tells how many
 * are needed. Return 0; QIM_ERR_INVALID for node 0; a database status. */
uint32_t qim_node_priv_set(uint32_t ses, qim_node_id_t node, const void* data, uint32_t len);
uint32_t qim_node_priv_get(uint32_t ses, qim_node_id_t node, uint32_t len, void* buf);
uint32_t qim_node_priv_ptr_set(uint32_t ses, qim_node_id_t node, void* ptr);
uint32_t qim_node_priv_ptr_get(uint32_t ses, qim_node_id_t node, void** out);

/* ==== Variable parts of nodes ================================================================= */

/* Copy the arguments of an Action or a Def into `buf_len` bytes at `buf`; what lies beyond them is
 * not touched. A buffer that is too small is left untouched and 0 returned: look at args_len first.
 * Return 0; what opening a node returns (QIM_ERR_NODE_TYPE for another type). */
uint32_t qim_action_arg_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len, void* buf);
uint32_t qim_def_arg_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len, void* buf);

/* Builds a Filter's criteria as a list in `buf`, which is zeroed first: the first
 * qim_criterion_t at its start, each followed by its arguments and the next one at multiples of
 * 8. The filter's crit_bytes are always enough. `buf` needs the alignment of qim_criterion_t.
 * Returns 0; QIM_ERR_BUF_SMALL; QIM_ERR_INVALID for a misaligned buffer; QIM_ERR_INTERNAL when a
 * criterion does not fit; what opening a node returns. */
uint32_t qim_filter_criteria_get(uint32_t ses, qim_node_id_t node_id, uint32_t buf_len, void* buf);

/* qim_node_read, and with it the node's private data and then, at the next multiple of 8, its
 * criteria or arguments in `buf_len` bytes at `buf`. The record's pointers lead into the buffer,
 * or are NULL where the node has no such data. The parts are read one after another: a node that
 * changes between them comes out mixed, unless the session is a snapshot.
 * Returns 0; QIM_ERR_BUF_SMALL; what the functions above return. After a failure *out holds what
 * was read so far. */
uint32_t qim_node_readall(uint32_t ses, qim_node_id_t node_id, int32_t type, qim_node_t* out,
                          int32_t buf_len, void* buf);

/* ==== Request and remote-link lists =========================================================== */

/* Convert every identifier of a list (NULL = empty) in place, to the database's form and back.
 * Slots of records of this library hold the identifier in host order in their first word. 0 is
 * converted like any other identifier. qim_rmtln_to_rov also sets id_len. */
void qim_rqst_to_rov(rov_rqst_t* head);
void qim_rqst_from_rov(rov_rqst_t* head);
void qim_rmtln_to_rov(rov_rmtln_t* head);
void qim_rmtln_from_rov(rov_rmtln_t* head);

#ifdef __cplusplus
}
#endif

#include "qim_db.h"

#endif
