// Lists of records that clients exchange with the database: their identifiers are converted in
// place, on the way there and on the way back.
#include "lib/export.h"
#include "qim.h"

namespace {

constexpr uint32_t kIdLen = sizeof(rov_node_id_t);

// A slot holds the 32-bit identifier in host order in its first word.
void slot_to_rov(rov_node_id_t* slot) {
  qim_to_rov_node_id_nochk(slot->word[0], slot);
}

// The rest of the slot stays as the database left it.
void slot_from_rov(rov_node_id_t* slot) {
  slot->word[0] = qim_from_rov_node_id(slot);
}

}  // namespace

QIM_API void qim_rqst_to_rov(rov_rqst_t* head) {
  for (; head != nullptr; head = head->next) {
    slot_to_rov(&head->node);
    slot_to_rov(&head->node2);
  }
}

QIM_API void qim_rqst_from_rov(rov_rqst_t* head) {
  for (; head != nullptr; head = head->next) {
    slot_from_rov(&head->node);
    slot_from_rov(&head->node2);
  }
}

// The database wants to know how long identifiers are; on the way back the word is its own.
QIM_API void qim_rmtln_to_rov(rov_rmtln_t* head) {
  for (; head != nullptr; head = head->next) {
    head->id_len = kIdLen;
    slot_to_rov(&head->node);
    slot_to_rov(&head->node2);
  }
}

QIM_API void qim_rmtln_from_rov(rov_rmtln_t* head) {
  for (; head != nullptr; head = head->next) {
    slot_from_rov(&head->node);
    slot_from_rov(&head->node2);
  }
}
