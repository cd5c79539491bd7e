// The exported sets that say which fields of a data-set name each format uses.
//
// They are written in host order and converted once, by the first start of the process: clients lay
// them over names, which are in network order.
#include "ids/field_sets.h"

#include "lib/export.h"
#include "qim.h"

namespace {

// The mark of a field in use is its most significant bit.
constexpr uint8_t kIn8 = 0x80;
constexpr uint16_t kIn16 = 0x8000;
constexpr uint32_t kIn32 = 0x80000000;

// Set for good by the first conversion: converting twice would turn the sets back.
uint32_t flds_converted;

}  // namespace

QIM_API_DATA qim_dsetname_t qim_pinstflds_if = {.dest = {.intf = {.fmt = kIn8,
                                                                  .ifix = kIn32,
                                                                  .vrf = kIn32,
                                                                  .vlan = kIn16,
                                                                  .vdc = kIn16,
                                                                  .reserved = {}}},
                                                .type = kIn32,
                                                .dir = kIn8};

QIM_API_DATA qim_dsetname_t qim_pinstflds_srv = {
    .dest = {.srv = {.fmt = kIn8, .srv_id = kIn32, .srv_def = kIn32, .srv_vdc = 0, .reserved = {}}},
    .type = kIn32,
    .dir = kIn8};

QIM_API_DATA qim_dsetname_t qim_pinstflds_gen = {.dest = {.gen = {.fmt = kIn8,
                                                                  .vdc = kIn16,
                                                                  .v8 = kIn8,
                                                                  .v16a = kIn16,
                                                                  .v16b = kIn16,
                                                                  .v32a = kIn32,
                                                                  .v32b = kIn32}},
                                                 .type = kIn32,
                                                 .dir = kIn8};

namespace qim {

void convert_field_sets() {
  if (flds_converted != 0) return;
  qim_dsetname_hton(&qim_pinstflds_if);
  qim_dsetname_hton(&qim_pinstflds_srv);
  qim_dsetname_hton(&qim_pinstflds_gen);
  flds_converted = 1;
}

}  // namespace qim
