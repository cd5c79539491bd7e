/* The codec of each record kind: sizes, encoding and decoding agree, and nothing gets lost. */
#include <mem.h>
#include <string.h>
#include <tlvo.h>

#include "client.h"

/* A record without pointers, which is equal when its bytes are. */
#define ROUND_TRIP(K)                                                      \
  static void round_trip_##K(const qim_##K##_t* record) {                  \
    uint8_t tlv[512];                                                      \
    uint32_t len = 0;                                                      \
    uint32_t count = 0;                                                    \
    qim_##K##_t* decoded = NULL;                                           \
    qim_##K##_t in_place;                                                  \
    qim_##K##_t* place = &in_place;                                        \
    IS(qim_##K##_to_tlv(record, tlv, sizeof tlv, &len, &count, 0), 0);     \
    IS(qim_##K##_get_tlv_sz(record), len);                                 \
    IS(qim_##K##_get_struct_sz(tlv), sizeof *record);                      \
    IS(qim_##K##_tbl.record_size, sizeof *record);                         \
    IS(qim_##K##_to_struct(&decoded, tlv, len, 0), 0);                     \
    SAME(decoded, record, sizeof *record);                                 \
    IS(mem_free(decoded, &qim_lib_get()->db_parms.mem), 0);                \
    memset(&in_place, 0, sizeof in_place);                                 \
    IS(qim_##K##_to_struct(&place, tlv, len, TLVO_DEC_IN_PLACE), 0);       \
    SAME(&in_place, record, sizeof *record);                               \
    if (len != 0) {                                                        \
      IS(count > 0, 1);                                                    \
      IS(qim_##K##_to_tlv(record, tlv, len - 1, &len, &count, 0) != 0, 1); \
    }                                                                      \
  }
QIM_CODEC_KINDS(ROUND_TRIP)

/* Records are equal byte for byte, so gaps must be zero, too. */
static void fixed_records(void) {
  static qim_criterion_t criterion;
  static qim_filter_t filter;
  static qim_hfilter_t hfilter;
  static qim_action_t action;
  static qim_haction_t haction;
  static qim_action_bw_t action_bw;
  static qim_police_t police;
  static qim_ifelse_t ifelse;
  static qim_def_t def;
  static qim_group_t group;
  static qim_pinst_t pinst;
  static qim_node_t node;
  criterion.type = 0x305;
  filter.match = QIM_LINK_TRUE;
  hfilter.nomatch_act = QIM_LINK_NEXT;
  action.type = 257;
  haction.type = 4;
  action_bw.rate = UINT64_C(0x0102030405060708);
  police.peak_bw.burst = UINT64_MAX;
  def.type = 2;
  group.subtype = 6;
  node.type = QIM_NODE_POLICE;
  node.group = 9;
  node.body.police.comt_bw.rate = 64000;
  round_trip_criterion(&criterion);
  round_trip_filter(&filter);
  round_trip_hfilter(&hfilter);
  round_trip_action(&action);
  round_trip_haction(&haction);
  round_trip_action_bw(&action_bw);
  round_trip_police(&police);
  round_trip_ifelse(&ifelse);
  round_trip_def(&def);
  round_trip_group(&group);
  round_trip_pinst(&pinst);
  round_trip_node(&node);
}

/* Lists and byte strings come from the context's pool. */
static void criteria_of_a_filter(void) {
  uint8_t args[] = {0x01, 0x00, 0x16};
  qim_criterion_t second = {NULL, 0x50a, sizeof args, NULL};
  qim_criterion_t first = {NULL, 0x305, 0, NULL};
  qim_filter_t filter;
  qim_filter_t* decoded = NULL;
  qim_criterion_t* crit;
  rov_mem_ctx_t* pool = &qim_lib_get()->db_parms.mem;
  uint8_t tlv[256];
  uint32_t len = 0;
  memset(&filter, 0, sizeof filter);
  second.args = args;
  first.next = &second;
  filter.crit = &first;
  filter.crit_cnt = 2;
  IS(qim_filter_to_tlv(&filter, tlv, sizeof tlv, &len, NULL, 0), 0);
  IS(qim_filter_to_struct(&decoded, tlv, len, 0), 0);
  crit = decoded->crit->next;
  IS(decoded->crit->type, 0x305);
  IS(crit->type, 0x50a);
  IS(crit->args_len, sizeof args);
  SAME(crit->args, args, sizeof args);
  IS(crit->next == NULL, 1);
  IS(mem_free(crit->args, pool), 0);
  IS(mem_free(crit, pool), 0);
  IS(mem_free(decoded->crit, pool), 0);
  IS(mem_free(decoded, pool), 0);
  IS(qim_filter_to_struct(&decoded, tlv, len - 4, 0) != 0, 1);
}

void codec(client_t* client) {
  static const uint8_t zeros[40];
  void* block = NULL;
  uint32_t size = 0;
  (void)client;
  fixed_records();
  criteria_of_a_filter();
  IS(qim_tlv_struct_alloc(sizeof zeros, &block, &size), 0);
  IS(size, sizeof zeros);
  SAME(block, zeros, sizeof zeros);
  IS(mem_free(block, &qim_lib_get()->db_parms.mem), 0);
}
