// Names of codes, as the show output prints them.
#pragma once

#include "qim.h"

namespace qim::schema {

// The kinds of link that evaluation may take; {0, NULL} ends the table.
inline constexpr rov_name_t link_kind_names[] = {
    {QIM_LINK_TRUE, "True"},
    {QIM_LINK_FALSE, "False"},
    {QIM_LINK_NOMATCH, "Nomatch"},
    {QIM_LINK_NEXT, "Next"},
    {0, nullptr},
};

}  // namespace qim::schema
