/*
 * qim_codes.h - the numbers in policy records: types of nodes, kinds and codes of their links.
 * qim.h includes it.
 *
 * Plain C99; usable from C++.
 */
#ifndef QIM_CODES_H
#define QIM_CODES_H

/* Node types */
enum {
  QIM_NODE_FILTER = 1,
  QIM_NODE_ACTION = 2,
  QIM_NODE_IFELSE = 3,
  QIM_NODE_HFILTER = 4,
  QIM_NODE_HACTION = 5,
  QIM_NODE_POLICE = 6,
  QIM_NODE_GROUP = 7,
  QIM_NODE_PINST = 8,
  QIM_NODE_DEF = 9,
  QIM_NODE_EDEST = 10,
  QIM_NODE_DSET = 32,       /* a data-set node with a data-set name */
  QIM_NODE_DSET_NONAME = 33 /* a data-set node without one */
};

/* Link kinds: which outgoing branch evaluation takes. */
enum { QIM_LINK_TRUE = 1, QIM_LINK_FALSE = 2, QIM_LINK_NOMATCH = 3, QIM_LINK_NEXT = 4 };

/* Link field codes: which of its links a node is asked for. A code is the number of the record that
 * the link belongs to, times 64, plus the link's own. Several types share one where they share what
 * it means. Policy is everything but Pinst, Edest and data-set nodes. */
enum {
  QIM_LN_FILTER_NEXT = 0x081, /* Filter, Hfilter: the next of a list of filters */
  QIM_LN_HFILTER_2 = 0x102,   /* Hfilter: policy */
  QIM_LN_ACTION_NEXT = 0x141, /* Action, Haction, Police: the next of a list of actions */
  QIM_LN_HACTION_2 = 0x182,   /* Haction: policy */
  QIM_LN_POLICE_1 = 0x201,    /* Police: policy, as are the next two */
  QIM_LN_POLICE_2 = 0x202,
  QIM_LN_POLICE_3 = 0x203,
  QIM_LN_IFELSE_1 = 0x241, /* Ifelse: policy, as are the next three */
  QIM_LN_IFELSE_2 = 0x242,
  QIM_LN_IFELSE_3 = 0x243,
  QIM_LN_IFELSE_4 = 0x244,
  QIM_LN_GROUP_FIRST = 0x281, /* Group: policy, the first of what it groups */
  QIM_LN_GROUP_DEF = 0x282,   /* Group: the Def for what nothing matches */
  QIM_LN_PINST = 0x2c1,       /* Pinst: its policy; Edest, data set: its Pinst */
  QIM_LN_DEF_NEXT = 0x301,    /* Def: another Def */
  QIM_LN_DEF_2 = 0x302,       /* Def: policy */
  QIM_LN_OPTIONAL = 0x8000,   /* set in the codes of links that no record holds */
  QIM_LN_FILTER_TRUE = 0x8082 /* Filter: where QIM_LINK_TRUE leads in imported access lists */
};

#endif
