// What a definition needs to leave the library: default visibility, and C linkage. The name also
// has to be in the list of exported names that the version script is made from. Data get their C
// linkage from their declaration in qim.h.
#pragma once

#define QIM_API_DATA __attribute__((visibility("default")))
#define QIM_API extern "C" QIM_API_DATA
