/*
 * rov_types.h - records that a policy client, the policy library and the node database hand to
 * one another.
 *
 * Conventions
 *  1. Layout is part of the interface. The byte positions in the comments are those of the
 *     device ABI (ILP32: 32-bit pointers); on 64-bit builds only pointer members (and
 *     `uintptr_t`, which must hold a pointer) widen, and what follows them moves. Alignment gaps
 *     are named members, so that targets that align 64-bit integers to 4 bytes and those that
 *     align them to 8 agree. ROV_ASSERT_* check this wherever the header is compiled.
 *  2. Integers are in host byte order unless a comment says "network order" (big-endian).
 *  3. A status is a uint32_t: 0 is success, 0x4117xxxx belongs to the node database (rov.h names
 *     them).
 *  4. Members called `reserved` are zero; a writer leaves them zero, a reader ignores them.
 *
 * Plain C99; usable from C++.
 */
#ifndef ROV_TYPES_H
#define ROV_TYPES_H

#include <stddef.h>
#include <stdint.h>

/* Compile-time assertions that C99 understands too. */
#if defined(__cplusplus)
#define ROV_ASSERT(name, cond) static_assert(cond, #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define ROV_ASSERT(name, cond) _Static_assert(cond, #name)
#else
#define ROV_ASSERT(name, cond) typedef char rov_assert_##name[(cond) ? 1 : -1]
#endif

/* The device's size or position, which holds where pointers are 32 bits wide. */
#define ROV_ILP32 (sizeof(void*) == 4)
#define ROV_ASSERT_SIZE(type, bytes) ROV_ASSERT(size_##type, !ROV_ILP32 || sizeof(type) == (bytes))
#define ROV_ASSERT_AT(type, member, byte) \
  ROV_ASSERT(at_##type##_##member, !ROV_ILP32 || offsetof(type, member) == (byte))

#ifdef __cplusplus
extern "C" {
#endif

/* A node's identifier in the database's form, 16 bytes. word[0] is the policy library's 32-bit
 * identifier in network order, words 1 to 3 are zero. All zero names no node. */
typedef struct rov_node_id {
  uint32_t word[4];
} rov_node_id_t;
ROV_ASSERT(size_rov_node_id, sizeof(rov_node_id_t) == 16);

/* A node's parameters: what the database knows of a node beside its contents. 56 bytes. */
typedef struct rov_node_parms {
  rov_node_id_t id;     /*  0: the node */
  uint32_t flags;       /* 16: ROV_NODE_* */
  uint32_t links;       /* 20: number of links the node holds */
  uint32_t refs;        /* 24: number of nodes that refer to it */
  uint32_t tlv_len;     /* 28: bytes of its TLV data */
  uint32_t dset_len;    /* 32: bytes of its data-set name: 21, or 0 when it has none */
  uint32_t priv_len;    /* 36: bytes of the asking client's private data on it */
  uintptr_t priv_ptr;   /* 40: the asking client's private pointer value, 0 when none */
  uint32_t reserved[3]; /* 44 */
} rov_node_parms_t;
ROV_ASSERT_SIZE(rov_node_parms_t, 56);
ROV_ASSERT_AT(rov_node_parms_t, priv_ptr, 40);

/* rov_node_parms_t.flags */
enum {
  ROV_NODE_DSET = 0x4 /* a data-set node: no TLV record of its own, known by its data-set name */
};

/* A link from one node to another. 72 bytes. */
typedef struct rov_link {
  rov_node_id_t owner;   /*  0: the node that holds the link */
  uint16_t field;        /* 16: link field code */
  uint16_t reserved0;    /* 18 */
  uint32_t reserved1;    /* 20 */
  rov_node_id_t node;    /* 24: the node the link leads to */
  uint32_t val;          /* 40: a value that the link carries */
  rov_node_id_t node2;   /* 44: a second node, all zero when absent */
  uint16_t tag;          /* 60: a 16-bit value that the link carries */
  uint16_t reserved2;    /* 62 */
  uint32_t reserved3[2]; /* 64 */
} rov_link_t;
ROV_ASSERT(size_rov_link, sizeof(rov_link_t) == 72);
ROV_ASSERT(at_rov_link_field, offsetof(rov_link_t, field) == 16);
ROV_ASSERT(at_rov_link_node, offsetof(rov_link_t, node) == 24);
ROV_ASSERT(at_rov_link_val, offsetof(rov_link_t, val) == 40);
ROV_ASSERT(at_rov_link_node2, offsetof(rov_link_t, node2) == 44);
ROV_ASSERT(at_rov_link_tag, offsetof(rov_link_t, tag) == 60);

/* The memory pool that a client's decodes allocate from (mem.h). 12 bytes. Copies of one context
 * name the same pool and may be used from different threads at once. */
typedef struct rov_mem_ctx {
  void* pool;        /* 0: the pool, NULL for the process's own default pool */
  uint32_t limit;    /* 4: most bytes the pool may have handed out at a time, 0 = no limit */
  uint32_t reserved; /* 8 */
} rov_mem_ctx_t;
ROV_ASSERT_SIZE(rov_mem_ctx_t, 12);

/* Receives one line of text. severity: 2 = error. arg: as registered. The text is valid during
 * the call only. */
typedef void (*rov_logger_fn)(uint32_t severity, const char* text, void* arg);

/* The database parameters that a client keeps a copy of. 100 bytes. */
typedef struct rov_db_parms {
  uint32_t reserved0;   /*  0 */
  rov_mem_ctx_t mem;    /*  4: the client's memory pool */
  uint32_t vdc;         /* 16: VDC number of this process, 0 to 63 */
  uint32_t vdc_dflt;    /* 20: non-zero: `vdc` stands in for a VDC of 0 in interface destinations */
  rov_logger_fn logger; /* 24: NULL = none */
  void* logger_arg;     /* 28: its last argument */
  uint32_t dbg_flags;   /* 32: debug flags */
  uint32_t reserved1[3]; /* 36 */
  uint32_t init_id;      /* 48: the client's initialisation identity */
  const char* db_path; /* 52: directory of the embedded database, NULL = $ROV_DB, else "./qim.db" */
  uint32_t db_group; /* 56: the system's number of a group that may use a database which is made, as
                            its owner may; 0 = nobody but its owner */
  uint32_t reserved2[10]; /* 60 */
} rov_db_parms_t;
ROV_ASSERT_SIZE(rov_db_parms_t, 100);
ROV_ASSERT_AT(rov_db_parms_t, mem, 4);
ROV_ASSERT_AT(rov_db_parms_t, vdc, 16);
ROV_ASSERT_AT(rov_db_parms_t, logger, 24);
ROV_ASSERT_AT(rov_db_parms_t, dbg_flags, 32);
ROV_ASSERT_AT(rov_db_parms_t, init_id, 48);
ROV_ASSERT_AT(rov_db_parms_t, db_path, 52);
ROV_ASSERT_AT(rov_db_parms_t, db_group, 56);

/* The initialisation-parameter block: an 8-byte head and the parameters. 108 bytes. */
typedef struct rov_parms {
  uint32_t version; /* 0: 1 */
  uint32_t size;    /* 4: bytes of the whole block in this build */
  rov_db_parms_t p; /* 8 */
} rov_parms_t;
ROV_ASSERT_SIZE(rov_parms_t, 108);
ROV_ASSERT_AT(rov_parms_t, p, 8);

/* What the database hands to the callback that reads a data-set name's policy type. */
typedef struct rov_sub {
  uint32_t reserved[5]; /*  0 */
  void* dset_name;      /* 20: a 21-byte data-set name in network order */
} rov_sub_t;
ROV_ASSERT_AT(rov_sub_t, dset_name, 20);

/* A request record; requests form a list. An identifier slot holds the database's form, or, in
 * the policy library's form, the 32-bit identifier in host order in word[0]. 44 bytes. */
typedef struct rov_rqst {
  struct rov_rqst* next; /*  0: NULL at the end */
  uint32_t word[2];      /*  4 */
  rov_node_id_t node;    /* 12: first node identifier slot */
  rov_node_id_t node2;   /* 28: second node identifier slot */
} rov_rqst_t;
ROV_ASSERT_AT(rov_rqst_t, node, 12);
ROV_ASSERT_AT(rov_rqst_t, node2, 28);

/* A remote-link record; slots as in rov_rqst_t. 64 bytes. */
typedef struct rov_rmtln {
  struct rov_rmtln* next; /*  0: NULL at the end */
  uint32_t word0;         /*  4 */
  rov_node_id_t node;     /*  8: first node identifier slot */
  uint32_t word1;         /* 24 */
  uint32_t id_len;        /* 28: bytes of an identifier, 16 on the way to the database */
  uint32_t word2[4];      /* 32 */
  rov_node_id_t node2;    /* 48: second node identifier slot */
} rov_rmtln_t;
ROV_ASSERT_AT(rov_rmtln_t, node, 8);
ROV_ASSERT_AT(rov_rmtln_t, id_len, 28);
ROV_ASSERT_AT(rov_rmtln_t, node2, 48);

/* ---- Descriptor tables of the TLV object codec (tlvo.h) -------------------------------------- */

/* tlvo_field_t.kind */
enum {
  TLVO_KIND_RECORD = 0xc0, /* an embedded record, described by `record` */
  TLVO_KIND_INT = 0xc1,    /* an integer of 1, 2, 4 or 8 bytes, as `width` says */
  TLVO_KIND_VALUE = 0x188, /* one value, coded by callbacks */
  TLVO_KIND_LIST = 0x18c   /* a list of values, coded by callbacks, one attribute an element */
};

/* The `position` of the descriptor that ends a table; every other word of it is zero. */
#define TLVO_FIELD_END 0xff000000u

/* Number of elements of a list field. */
typedef uint32_t (*tlvo_count_fn)(const void* record);
/* Bytes of the field's TLV value (all elements of a list with their heads and padding),
 * 0xffffffff = failure. */
typedef uint32_t (*tlvo_size_fn)(const void* record);
/* Encodes a value. iter: a word of the codec, NULL at a field's first call, in which a list
 * keeps its place. out: where the value goes. len: in: room in bytes, out: bytes written. done:
 * set to 1 when no element follows.
 * Returns a status. */
typedef uint32_t (*tlvo_encode_fn)(const void* record, void** iter, void* out, uint32_t* len,
                                   uint32_t* done);
/* Decodes a value of `len` bytes at `value`. iter: a word of the codec, NULL at a field's first
 * attribute, in which a list keeps its tail. Returns a status. */
typedef uint32_t (*tlvo_decode_fn)(void* record, const void* value, uint32_t len, void** iter);

struct tlvo_table;

/* A field descriptor: 21 words, 84 bytes. */
typedef struct tlvo_field {
  uint32_t reserved0; /* word 0 */
  uint32_t id;        /* word 1: TLV field id within the record */
  uint32_t width;     /* word 2: bytes of the field in the record, 0 for a list */
  uint32_t position;  /* word 3: its byte position, 0 for a list; TLVO_FIELD_END ends the table */
  uint32_t kind;      /* word 4: TLVO_KIND_* */
  uint32_t reserved1; /* word 5 */
  const struct tlvo_table* record; /* word 6: TLVO_KIND_RECORD: the embedded record's table */
  uint32_t reserved2[3];           /* words 7 to 9 */
  tlvo_count_fn count;             /* word 10: TLVO_KIND_LIST */
  tlvo_encode_fn encode; /* word 11: TLVO_KIND_VALUE and TLVO_KIND_LIST, as the two below */
  tlvo_decode_fn decode; /* word 12 */
  tlvo_size_fn size;     /* word 13 */
  uint32_t reserved3[7]; /* words 14 to 20 */
} tlvo_field_t;
ROV_ASSERT_SIZE(tlvo_field_t, 84);
ROV_ASSERT_AT(tlvo_field_t, count, 40);

/* The head of a descriptor table, 12 words, 48 bytes. The field descriptors follow it
 * immediately, the last one being the terminator. */
typedef struct tlvo_table {
  uint32_t record_size; /* word 0: bytes of the record */
  const char* name;     /* word 1: the table's own name */
  uint32_t struct_id;   /* word 2: the record's number in tags */
  uint32_t reserved[9]; /* words 3 to 11 */
} tlvo_table_t;
ROV_ASSERT_SIZE(tlvo_table_t, 48);

/* A list descriptor, five words, or the element-link descriptor that it names, of the same
 * shape. */
typedef struct tlvo_list {
  void* (*head)(
      void* record); /* word 0: address of the list head in the owning record; in an element-link
                                  descriptor: address of the next pointer in an element */
  uint32_t (*alloc)(void* owner, void** out, void* list,
                    uint32_t* size); /* word 1: a zeroed element into *out, its
                                  bytes into *size; returns a status */
  const tlvo_table_t* element;       /* word 2: the element's table */
  const struct tlvo_list* link;      /* word 3: the element-link descriptor; NULL in one */
  void* (*aux)(
      void*
          record); /* word 4: address of a 32-bit bookkeeping word in the owning record; NULL in an
                                  element-link descriptor */
} tlvo_list_t;
ROV_ASSERT_SIZE(tlvo_list_t, 20);

/* A member of a body union, three words. A union table has exactly TLVO_UNION_MEMBERS of them
 * and no end entry. */
typedef struct tlvo_union {
  uint32_t type;             /* word 0: discriminator */
  const tlvo_table_t* table; /* word 1: the member's table */
  uint32_t reserved;         /* word 2 */
} tlvo_union_t;
ROV_ASSERT_SIZE(tlvo_union_t, 12);
#define TLVO_UNION_MEMBERS 10

/* ---- Show records (rov_reg_show_output) ------------------------------------------------------ */

/* rov_show_t.kind */
enum {
  ROV_SHOW_RAW = 0,    /* a record header, or a field shown as raw bytes */
  ROV_SHOW_INT = 1,    /* an integer */
  ROV_SHOW_RECORD = 2, /* an embedded record, described by aux.table */
  ROV_SHOW_LIST = 3,   /* a list of records, described by aux.table */
  ROV_SHOW_ENUM = 5,   /* an enumerated value, named by aux.names */
  ROV_SHOW_UNION = 6,  /* the body union: aux.body */
  ROV_SHOW_PRINT = 7   /* printed by aux.print */
};

/* rov_show_t.selector of the two registered records; 0 in table entries. */
enum { ROV_SHOW_SEL_TLVA = 1, ROV_SHOW_SEL_DSETNAME = 3 };

/* A (code, name) pair; {0, NULL} ends a name table. */
typedef struct rov_name {
  uint32_t code;
  const char* name;
} rov_name_t;

struct rov_show;

/* What describes a body union: the names of its discriminators and the attribute table. */
typedef struct rov_show_body {
  const rov_name_t* names;
  const struct rov_show* table;
} rov_show_body_t;

/* A TLV value's printer. tag, level, flags: of the attribute; len and value: the value; prefix:
 * printed at the start of each line; ses and arg: the show call's own. Returns text valid until
 * its next call. */
typedef char* (*rov_show_print_fn)(uint32_t tag, uint32_t level, uint32_t flags, uint32_t len,
                                   const void* value, const char* prefix, uint32_t ses, void* arg);

/* A show record: seven words. An attribute table is an array of them, ended by an all-zero one. */
typedef struct rov_show {
  uint32_t reserved0; /* word 0 */
  uint32_t selector;  /* word 1: ROV_SHOW_SEL_* */
  uint32_t attr_id;   /* word 2: record header: struct id << 16; field: TLV field id */
  const char* name;   /* word 3 */
  uint32_t kind;      /* word 4: ROV_SHOW_* */
  uint32_t reserved1; /* word 5 */
  union {             /* word 6, by kind */
    const void* none;
    const struct rov_show* table;
    const rov_name_t* names;
    const rov_show_body_t* body;
    rov_show_print_fn print;
  } aux;
} rov_show_t;
ROV_ASSERT_SIZE(rov_show_t, 28);

/* ---- What the database's operations take and give ------------------------------------------- */

/* A piece of a client's private data on the database or on a session. Clients never see another
 * identity's. 12 bytes. */
typedef struct rov_priv {
  uint32_t key; /* 0: the client's own number for it, not 0 */
  uint32_t len; /* 4: bytes at data; on reads: in: room, out: bytes there are */
  void* data;   /* 8 */
} rov_priv_t;
ROV_ASSERT_SIZE(rov_priv_t, 12);

/* rov_change_t.kind, and as 1 << kind the bits of rov_ntf_t.kinds */
enum {
  ROV_CHANGE_NODE_PUT = 1,  /* a node was stored or replaced */
  ROV_CHANGE_NODE_DEL = 2,  /* a node was removed */
  ROV_CHANGE_LINK_PUT = 3,  /* a link of the node was stored or replaced: `field` */
  ROV_CHANGE_LINK_DEL = 4,  /* a link of the node was removed: `field` */
  ROV_CHANGE_PRIV_POST = 5, /* the client's private data `field` was posted by another process */
  ROV_CHANGE_GAP = 6        /* changes were lost to this client: `revision` is where it can go on
                               after reading everything again */
};

/* A registration for changes (rov_db_ntf). 16 bytes. */
typedef struct rov_ntf {
  uint32_t kinds; /* 0: in: bits 1 << ROV_CHANGE_*; 0 ends the registration. Gaps always come */
  int32_t fd;     /* 4: out: becomes readable when there may be messages; the database's own */
  uint32_t revision[2]; /* 8: in: changes after this revision, high word first; 0 = from now on.
                           out: the revision that the registration starts from */
} rov_ntf_t;
ROV_ASSERT(size_rov_ntf, sizeof(rov_ntf_t) == 16);

/* A message of the database (rov_process_msg). 80 bytes, host byte order. */
typedef struct rov_change {
  uint32_t magic;       /*  0: ROV_MSG_MAGIC */
  uint32_t len;         /*  4: bytes of the message */
  uint32_t revision[2]; /*  8: the commit, high word first */
  uint32_t kind;        /* 16: ROV_CHANGE_* */
  uint32_t field;       /* 20: link field code, or key of private data */
  rov_node_id_t node;   /* 24: the node changed, in the database's form */
  uint32_t dset_len;    /* 40: 21 when the node has a data-set name, else 0 */
  uint8_t dset[24];     /* 44: that name, network order, zero-padded */
  uint32_t user[2];     /* 68: who committed (rov_usr_id_info), high word first */
  uint32_t reserved;    /* 76 */
} rov_change_t;
ROV_ASSERT(size_rov_change, sizeof(rov_change_t) == 80);
#define ROV_MSG_MAGIC 0x526f4d31u

/* Who a user number stands for (rov_usr_id_info). 64 bytes. */
typedef struct rov_usr {
  uint32_t uid;     /*  0: user of the operating system */
  uint32_t pid;     /*  4: process */
  uint32_t client;  /*  8: the client's identity */
  uint32_t group;   /* 12: its user group (rov_db_usr_group) */
  uint32_t time[2]; /* 16: of its last commit, seconds since 1970, high word first */
  uint32_t flags;   /* 24: 0 */
  char name[36];    /* 28: the user's name, terminated, "" when unknown */
} rov_usr_t;
ROV_ASSERT(size_rov_usr, sizeof(rov_usr_t) == 64);

/* A failure of the past (rov_err_getprev). */
typedef struct rov_err {
  uint32_t seq;      /*   0: in: 0 = the newest, else the one before this number; out: its number */
  uint32_t status;   /*   4: out */
  char message[248]; /*   8: out: what, where, what to do about it; terminated, cut if longer */
} rov_err_t;
ROV_ASSERT(size_rov_err, sizeof(rov_err_t) == 256);

/* What rov_db_show_internal shows and where. */
typedef struct rov_show_req {
  uint32_t ses;                             /*  0: session to read through, 0 = the newest commit */
  uint32_t what;                            /*  4: ROV_SHOW_NODE, ... */
  rov_node_id_t node;                       /*  8: the node, for ROV_SHOW_NODE */
  const char* prefix;                       /* 24: printed at the start of each line, NULL = none */
  void (*out)(const char* text, void* arg); /* 28: receives the text in pieces */
  void* arg;                                /* 32 */
} rov_show_req_t;
ROV_ASSERT_SIZE(rov_show_req_t, 36);

/* rov_show_req_t.what */
enum {
  ROV_SHOW_NODE = 1,    /* a node: parameters, data-set name, TLV by the registered table, links */
  ROV_SHOW_DSETS = 2,   /* every data set, one line each */
  ROV_SHOW_DATABASE = 3 /* counts, sizes, sessions, registrations, readers and their age */
};

/* ---- Callbacks that a client registers ------------------------------------------------------- */

/* Converts the first word of a database identifier in place. */
typedef void (*rov_node_id_cnv_fn)(uint32_t* word);
/* Reads the policy type out of a record's data-set name. */
typedef uint32_t (*rov_extract_pinst_fn)(const rov_sub_t* sub);
/* Prints a pair of 21-byte data-set names (network order) as one line: a, b: columns; tail,
 * lead: strings around it.
 * Returns text valid until its next call. */
typedef char* (*rov_dsetname_print_fn)(void* name1, void* name2, int a, int b, const char* tail,
                                       const char* lead);

#ifdef __cplusplus
}
#endif

#endif
