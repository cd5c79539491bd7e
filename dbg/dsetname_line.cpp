// One line for a pair of data-set names, as the database's list of data sets prints it.
#include "dbg/text.h"
#include "lib/export.h"
#include "qim.h"

namespace qim::dbg {
namespace {

constexpr size_t kBufferSize = 256;

// Only the first name's format decides; the second is read as an interface name whatever it is.
// Names of other formats leave the columns blank.
void add_places(Text& text, const qim_dsetname_t& first, const qim_dsetname_t& second) {
  if (first.dest.fmt != QIM_DEST_IF) {
    text.add("%39s", "");
    return;
  }
  text.add("%3d  %4x %4x  %#10x %#10x  ", first.dest.intf.vdc, first.dest.intf.vlan,
           second.dest.intf.vlan, first.dest.intf.ifix, second.dest.intf.ifix);
}

}  // namespace
}  // namespace qim::dbg

QIM_API char* qim_dbg_dsetname_print(void* name1, void* name2, int a, int b, const char* tail,
                                     const char* lead) {
  // The database prints the line before it asks for the next one, so one buffer serves all.
  static char buffer[qim::dbg::kBufferSize];
  qim::dbg::Text text(buffer, sizeof(buffer) - 1);
  auto* first = static_cast<qim_dsetname_t*>(name1);
  auto* second = static_cast<qim_dsetname_t*>(name2);
  qim_dsetname_ntoh(first);
  qim_dsetname_ntoh(second);
  text.add("%s%3d %#9x  %3s %4d ", lead, a, first->type, first->dir == QIM_DIR_IN ? "inp" : "out",
           b);
  qim::dbg::add_places(text, *first, *second);
  text.add("%s", tail);
  qim_dsetname_hton(first);
  qim_dsetname_hton(second);
  return buffer;
}
