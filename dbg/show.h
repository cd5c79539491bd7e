// The diagnostics that start-up registers with the database: qim_dbg_tlva_handler, qim_dbg_dsetname
// and qim_dbg_dsetname_print of qim.h, and what they are made of.
#pragma once

#include "qim.h"

// Renders the TLV value of a data-set name: a hex dump, its type and direction, and its
// destination. Uses only len, value (network order, never modified) and prefix (printed at the
// start of each line). Returns a static buffer.
extern "C" char* qim_dbg_dsetname_tlv_show(uint32_t tag, uint32_t level, uint32_t flags,
                                           uint32_t len, const void* value, const char* prefix,
                                           uint32_t ses, void* arg);
