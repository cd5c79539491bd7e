// What kind of node a record is, as evaluation asks: by its type, and for groups by their body's.
#include "lib/export.h"
#include "schema/rows.h"

using qim::schema::is_of;
namespace family = qim::schema::family;

QIM_API int qim_is_filterlist_type(const qim_node_t* node) {
  return is_of(node->type, family::filters) ? 1 : 0;
}

QIM_API int qim_is_actionlist_type(const qim_node_t* node) {
  return is_of(node->type, family::actions) ? 1 : 0;
}

QIM_API int qim_is_ifelse_filter_type(const qim_node_t* node) {
  if (qim_is_filterlist_type(node) != 0) return 1;
  return node->type == QIM_NODE_GROUP && node->body.group.type == QIM_GROUP_IFELSE ? 1 : 0;
}
