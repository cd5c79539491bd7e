// The node cache's own state beside its exported ends.
#pragma once

#include "qim.h"

extern "C" {
extern int32_t node_cache_count;  // entries in the list
extern int32_t node_cache_max;    // capacity; nothing here raises it above 0
}
