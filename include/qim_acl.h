/*
 * qim_acl.h - access lists in policy nodes: the codes that stand in records and criteria, criteria as
 * typed values, the names of lists, entries and interfaces, and what a client needs around them. qim.h
 * leaves all of this to its clients; clients that agree on access lists include this header.
 *
 * An access list is a Group. Its link QIM_LN_GROUP_FIRST leads to a chain of Filters, an entry each,
 * QIM_LN_GROUP_DEF to what becomes of a packet that no entry matches. A Pinst leads to the Group; an
 * Edest, which is an interface, to the Pinst. An entry matches a packet that all of its criteria hold
 * for; what happens then is the Action behind the Filter's link QIM_LN_FILTER_TRUE, or the chain of
 * them. The lists at one interface and direction are asked in the order of their stages: the first
 * entry that matches decides, a list without a match hands on, and when none matches the Def of the
 * last stage decides.
 *
 * What people call them:
 *  - list: the Group's link QIM_LN_GROUP_NAME leads to an Action of type QIM_ACTION_NAME, whose
 *    arguments are the name.
 *  - interface: the same, link QIM_LN_EDEST_NAME of the Edest. Policer: QIM_LN_POLICE_NAME of the
 *    Police.
 *  - entry: the arguments of the Filter's criterion QIM_CRIT_NAME, which holds for every packet.
 * Names are UTF-8 without a terminator. They, and the arguments of QIM_LAYOUT_TEXT, BYTES and MATCH, are
 * whatever their writer put there: a client that prints them shows control characters, and those that
 * turn the direction of text, as escapes, or a terminal obeys them.
 *
 * The functions are a static library, libqimacl.a, which needs libqimcommon, librovcommon and libc.
 * They keep nothing between calls: threads may call them at once, each with a session of its own, as
 * qim.h has it. The conventions of qim.h hold, those about reports excepted: these report nothing
 * themselves.
 *
 * Plain C99; usable from C++.
 */
#ifndef QIM_ACL_H
#define QIM_ACL_H

#include "qim.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ==== Codes =================================================================================== */

/* A criterion's type is a header (high byte) and a field in it (low byte): field 0 asks only that
 * the packet has the header. QIM_HEADER_ENTRY is no header: what is said of the entry itself. */
enum {
  QIM_HEADER_ENTRY = 0x0000,
  QIM_HEADER_INTERFACE = 0x0100,
  QIM_HEADER_ETH = 0x0200,
  QIM_HEADER_IPV4 = 0x0300,
  QIM_HEADER_IPV6 = 0x0400,
  QIM_HEADER_TCP = 0x0500,
  QIM_HEADER_UDP = 0x0600,
  QIM_HEADER_ICMP = 0x0700
};

/* qim_criterion_t.type. But for those of the entry they are the matches of RFC 8519, sections 4.1
 * and 4.2; behind each its arguments, as QIM_LAYOUT_* has them, and what a value counts. */
enum {
  QIM_CRIT_NAME = 0x0001,   /* TEXT: the entry's name: holds for every packet */
  QIM_CRIT_OPAQUE = 0x0002, /* MATCH: a match that only another data model understands: who does not
                               know it cannot tell whether the entry matches. An entry may have
                               several */

  QIM_CRIT_INGRESS_INTERFACE = 0x0101, /* INTERFACE: by which the packet came */
  QIM_CRIT_EGRESS_INTERFACE = 0x0102,  /* INTERFACE: by which it leaves */

  QIM_CRIT_ETH = 0x0200,             /* NONE */
  QIM_CRIT_ETH_DESTINATION = 0x0201, /* MAC */
  QIM_CRIT_ETH_SOURCE = 0x0202,      /* MAC */
  QIM_CRIT_ETH_ETHERTYPE = 0x0203,   /* U16_HEX */

  QIM_CRIT_IPV4 = 0x0300,                /* NONE */
  QIM_CRIT_IPV4_DSCP = 0x0301,           /* U8: 0 to 63 (RFC 2474) */
  QIM_CRIT_IPV4_ECN = 0x0302,            /* U8: 0 to 3 (RFC 3168) */
  QIM_CRIT_IPV4_LENGTH = 0x0303,         /* U16: bytes, header included (RFC 791) */
  QIM_CRIT_IPV4_TTL = 0x0304,            /* U8 */
  QIM_CRIT_IPV4_PROTOCOL = 0x0305,       /* U8 */
  QIM_CRIT_IPV4_IHL = 0x0306,            /* U8: 5 to 60; the header has 32-bit words, 5 to 15 */
  QIM_CRIT_IPV4_FLAGS = 0x0307,          /* IPV4_FLAGS: all three are as said */
  QIM_CRIT_IPV4_OFFSET = 0x0308,         /* U16: 20 to 65535; the header has units of 8 bytes */
  QIM_CRIT_IPV4_IDENTIFICATION = 0x0309, /* U16 */
  QIM_CRIT_IPV4_DESTINATION = 0x030a,    /* IPV4_NETWORK */
  QIM_CRIT_IPV4_SOURCE = 0x030b,         /* IPV4_NETWORK */

  QIM_CRIT_IPV6 = 0x0400,             /* NONE */
  QIM_CRIT_IPV6_DSCP = 0x0401,        /* U8: 0 to 63 */
  QIM_CRIT_IPV6_ECN = 0x0402,         /* U8: 0 to 3 */
  QIM_CRIT_IPV6_LENGTH = 0x0403,      /* U16: bytes of payload (RFC 8200) */
  QIM_CRIT_IPV6_TTL = 0x0404,         /* U8: the hop limit */
  QIM_CRIT_IPV6_PROTOCOL = 0x0405,    /* U8: that of the upper layer */
  QIM_CRIT_IPV6_DESTINATION = 0x0406, /* IPV6_NETWORK */
  QIM_CRIT_IPV6_SOURCE = 0x0407,      /* IPV6_NETWORK */
  QIM_CRIT_IPV6_FLOW_LABEL = 0x0408,  /* U32: 0 to 0xfffff (RFC 6437) */

  QIM_CRIT_TCP = 0x0500,                 /* NONE */
  QIM_CRIT_TCP_SEQUENCE = 0x0501,        /* U32 */
  QIM_CRIT_TCP_ACKNOWLEDGEMENT = 0x0502, /* U32 */
  QIM_CRIT_TCP_DATA_OFFSET = 0x0503,     /* U8: 32-bit words, 5 to 15 */
  QIM_CRIT_TCP_RESERVED = 0x0504,        /* U8 */
  QIM_CRIT_TCP_FLAGS = 0x0505,           /* TCP_FLAGS: all eight are as said (RFC 9293) */
  QIM_CRIT_TCP_WINDOW = 0x0506,          /* U16: bytes, unscaled */
  QIM_CRIT_TCP_URGENT = 0x0507,          /* U16 */
  QIM_CRIT_TCP_OPTIONS = 0x0508,         /* BYTES: 1 to 40, all of the options */
  QIM_CRIT_TCP_SOURCE = 0x0509,          /* PORTS */
  QIM_CRIT_TCP_DESTINATION = 0x050a,     /* PORTS */

  QIM_CRIT_UDP = 0x0600,             /* NONE */
  QIM_CRIT_UDP_LENGTH = 0x0601,      /* U16: bytes, header included (RFC 768) */
  QIM_CRIT_UDP_SOURCE = 0x0602,      /* PORTS */
  QIM_CRIT_UDP_DESTINATION = 0x0603, /* PORTS */

  QIM_CRIT_ICMP = 0x0700,      /* NONE: ICMP of IPv4 or of IPv6 */
  QIM_CRIT_ICMP_TYPE = 0x0701, /* U8 */
  QIM_CRIT_ICMP_CODE = 0x0702, /* U8 */
  QIM_CRIT_ICMP_REST = 0x0703  /* BYTES: what follows the checksum begins with them */
};

/* How a criterion's arguments are laid out: without padding, integers in network order. */
enum {
  QIM_LAYOUT_NONE = 0,       /* no arguments: the packet has the header */
  QIM_LAYOUT_U8 = 1,         /* 1 byte */
  QIM_LAYOUT_U16 = 2,        /* 2 bytes */
  QIM_LAYOUT_U16_HEX = 3,    /* the same, read as hexadecimal */
  QIM_LAYOUT_U32 = 4,        /* 4 bytes */
  QIM_LAYOUT_IPV4_FLAGS = 5, /* 1 byte: reserved 4, do not fragment 2, more fragments 1 */
  QIM_LAYOUT_TCP_FLAGS = 6,  /* 1 byte: CWR 0x80 down to FIN 0x01, as in the header */
  QIM_LAYOUT_MAC = 7,        /* 6 bytes of address, 6 of mask: bits that the mask clears are free */
  QIM_LAYOUT_IPV4_NETWORK =
      8, /* 4 bytes of address, 1 byte: length of the prefix in bits, 0 to 32 */
  QIM_LAYOUT_IPV6_NETWORK = 9, /* 16 bytes of address, 1 byte: the same, 0 to 128 */
  QIM_LAYOUT_PORTS = 10,       /* 1 byte QIM_PORT_*, 2 bytes first port, 2 bytes last port, which is
                                  the first one but for QIM_PORT_RANGE */
  QIM_LAYOUT_BYTES = 11,       /* as many as there are */
  QIM_LAYOUT_INTERFACE = 12,   /* 4 bytes interface index, then the interface's name, not empty */
  QIM_LAYOUT_TEXT = 13,        /* UTF-8; not to be printed as it is */
  QIM_LAYOUT_MATCH = 14 /* three texts, each with its length in front (2 bytes): the container
                                  that holds the match, may be empty, its module, and its name; then
                                  its value as JSON (RFC 8785) to the end */
};

/* The comparison that begins a port criterion's arguments. */
enum { QIM_PORT_EQ = 1, QIM_PORT_NEQ = 2, QIM_PORT_LTE = 3, QIM_PORT_GTE = 4, QIM_PORT_RANGE = 5 };

/* qim_action_t.type, and the first three qim_def_t.type, too. */
enum {
  QIM_ACTION_ACCEPT = 1,
  QIM_ACTION_DROP = 2,
  QIM_ACTION_REJECT = 3, /* drop, and tell the sender with an ICMP error */
  QIM_ACTION_LOG = 0x101,
  QIM_ACTION_NAME = 0x102 /* nothing to do: its arguments are what a node is called */
};

/* qim_group_t.type of an access list. 1 is QIM_GROUP_IFELSE. */
enum { QIM_GROUP_ACCESS_LIST = 2 };

/* qim_group_t.subtype of an access list: a bit for each kind of header that it may match on, 0 when
 * it does not say. */
enum { QIM_ACL_ETH = 1, QIM_ACL_IPV4 = 2, QIM_ACL_IPV6 = 4 };

/* The policy type in the data-set names of access lists: this, and in the low 16 bits the stage, the
 * place of the list among those of one interface and direction, from 1. */
enum { QIM_POLICY_ACCESS_LIST = 0x00010000, QIM_POLICY_STAGES = 0x0000ffff };

/* The direction in data-set names: QIM_DIR_IN is input; of the other values, which are all output,
 * this is the one that access lists use. */
enum { QIM_DIR_OUT = 2 };

/* qim_action_bw_t.rate_units and burst_units of a policer: rates are in units a second. */
enum { QIM_UNIT_BYTES = 1, QIM_UNIT_PACKETS = 2 };

/* Links that no slot holds: read them with qim_link_field_get. */
enum {
  QIM_LN_GROUP_NAME = 0x8283, /* Group: the Action that names it */
  QIM_LN_EDEST_NAME = 0x82c2, /* Edest: the Action that names its interface */
  QIM_LN_POLICE_NAME = 0x8204 /* Police: the Action that names it */
};

/* The status of a node that has no name: the database's ROV_ERR_NO_LINK. */
enum { QIM_POLICY_NO_NAME = 0x4117000f };

/* ==== Criteria ================================================================================ */

/* A type of criteria. */
typedef struct qim_crit_kind {
  uint32_t type;   /* QIM_CRIT_* */
  uint32_t layout; /* QIM_LAYOUT_* */
  uint32_t min;    /* least value of a U8, U16, U16_HEX or U32, least port, least length of BYTES */
  uint32_t max;    /* the greatest; 0 where there is nothing to bound */
  const char* name; /* header and field, "ipv4.ttl", for field 0 the header alone; static */
} qim_crit_kind_t;

/* Every known type, in ascending order of its number, and their count in *count. Static. */
const qim_crit_kind_t* qim_crit_kinds(uint32_t* count);
/* The type of that number, or name; NULL when it is not known. Static. */
const qim_crit_kind_t* qim_crit_kind_get(uint32_t type);
const qim_crit_kind_t* qim_crit_kind_named(const char* name);

/* Bytes that lie in somebody else's memory, without a terminator. */
typedef struct qim_crit_bytes {
  const uint8_t* at; /* may be NULL when len is 0 */
  uint32_t len;
} qim_crit_bytes_t;

/* A criterion as a value, in host order. Which member of `as` holds it goes by the layout. */
typedef struct qim_crit_value {
  uint32_t type;   /* QIM_CRIT_* */
  uint32_t layout; /* QIM_LAYOUT_*: that of the type */
  union {
    uint32_t number; /* U8, U16, U16_HEX, U32, IPV4_FLAGS, TCP_FLAGS */
    struct {
      uint8_t address[6];
      uint8_t mask[6];
    } mac; /* MAC */
    struct {
      uint8_t address[16]; /* in network order; the first 4 bytes of IPv4, the rest 0 */
      uint8_t bits;        /* length of the prefix */
    } network;             /* IPV4_NETWORK, IPV6_NETWORK */
    struct {
      uint8_t comparison; /* QIM_PORT_* */
      uint16_t first;
      uint16_t last;        /* QIM_PORT_RANGE only; else the same as first */
    } ports;                /* PORTS */
    qim_crit_bytes_t bytes; /* BYTES, TEXT */
    struct {
      uint32_t index;
      qim_crit_bytes_t name;
    } interface; /* INTERFACE */
    struct {
      qim_crit_bytes_t within; /* the container below the matches that holds it, "ipv4" or empty */
      qim_crit_bytes_t module;
      qim_crit_bytes_t name;
      qim_crit_bytes_t json;
    } match; /* MATCH */
  } as;
} qim_crit_value_t;

/* Takes the arguments of a criterion of that type apart, `len` bytes at `args`, which may be NULL
 * when len is 0; most often criterion->type, criterion->args_len, criterion->args. Bytes of *out lead
 * into `args`. Values beyond the bounds of the type are given as they are: no packet has them.
 * Returns 0; QIM_ERR_NOT_SUPPORTED for a type that is not known; QIM_ERR_INVALID for arguments that
 * do not have its layout. After a failure *out is zero but for its type. */
uint32_t qim_crit_parse(uint32_t type, uint32_t len, const uint8_t* args, qim_crit_value_t* out);

/* Writes a value as arguments of its type into `room` bytes at `args`, and how many bytes they are
 * into *len. value->layout is not looked at: the type has it. Bits of an address that the mask clears
 * or that lie behind the prefix are written as 0, and so is the last port of what is no range as the
 * first one. `args` is the caller's and may be NULL when `room` is 0: so the room is asked for.
 * Returns 0; QIM_ERR_NOT_SUPPORTED for a type that is not known; QIM_ERR_INVALID for a value that is
 * none of the type: beyond its bounds, a comparison that is none, a range that ends before it begins,
 * an interface without a name, a text of a MATCH above 65535 bytes; QIM_ERR_BUF_SMALL with *len set
 * and `args` untouched. *len is 0 after the other failures. */
uint32_t qim_crit_build(const qim_crit_value_t* value, uint32_t room, uint8_t* args, uint32_t* len);

/* ==== Names =================================================================================== */

/* These read what a node is called into `room` bytes at `buf`, terminated with a 0, and into *len the
 * bytes of the name without that 0. `buf` is the caller's and may be NULL when `room` is 0.
 * Return 0; QIM_ERR_BUF_SMALL, with *len set and `buf` untouched, when the name and the 0 do not
 * fit; QIM_POLICY_NO_NAME; QIM_ERR_NODE_TYPE for a node of another type, also where the link to the
 * name leads to one; QIM_ERR_NO_MEM; QIM_ERR_INVALID for node 0; a database status. After a failure
 * other than QIM_ERR_BUF_SMALL *len is 0. */

/* The name of an access list, by its Group. */
uint32_t qim_list_name_get(uint32_t ses, qim_node_id_t group, uint32_t room, char* buf,
                           uint32_t* len);
/* The name of an entry, by its Filter. */
uint32_t qim_entry_name_get(uint32_t ses, qim_node_id_t filter, uint32_t room, char* buf,
                            uint32_t* len);
/* The name of the interface that a list is attached to, by the Edest. */
uint32_t qim_interface_name_get(uint32_t ses, qim_node_id_t edest, uint32_t room, char* buf,
                                uint32_t* len);
/* The name of a policer, by its Police. */
uint32_t qim_policer_name_get(uint32_t ses, qim_node_id_t police, uint32_t room, char* buf,
                              uint32_t* len);
/* The name that an Action of type QIM_ACTION_NAME is. Any other Action gives QIM_ERR_NODE_TYPE. */
uint32_t qim_policy_name_get(uint32_t ses, qim_node_id_t action, uint32_t room, char* buf,
                             uint32_t* len);

/* ==== Interface indices ======================================================================= */

/* The interface index in data-set names and criteria that stands for an interface of which no more is
 * known than its name, `len` bytes at `name`: the same in every process, 1 to 0x7fffffff. Two names
 * may share one: the names decide. That of an Edest is in its record: qim_if_policy_dest_get2. */
uint32_t qim_interface_index(const char* name, uint32_t len);

/* ==== Sessions and statuses =================================================================== */

/* Closes a session of qim_ses_open_ro: rov_ses_close. ROV_ERR_HANDLE for one that is closed. */
uint32_t qim_ses_close(uint32_t ses);

/* The name of any status that qim.h and rov.h know, "QIM_ERR_NO_EDEST", and what it means and what
 * to do about it. Static text, never NULL. 0 is "ROV_OK"; what is none is "ROV_ERR_UNKNOWN", with a
 * text that says so. */
const char* qim_status_name(uint32_t status);
const char* qim_status_text(uint32_t status);

#ifdef __cplusplus
}
#endif

#endif
