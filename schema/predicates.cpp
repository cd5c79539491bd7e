// What kind of node a record is, as evaluation asks: by its type, and for groups by their body's.
#include "lib/export.h"
#include "qim.h"

QIM_API int qim_is_filterlist_type(const qim_node_t* node) {
  return node->type == QIM_NODE_FILTER || node->type == QIM_NODE_HFILTER ? 1 : 0;
}

QIM_API int qim_is_actionlist_type(const qim_node_t* node) {
  return node->type == QIM_NODE_ACTION || node->type == QIM_NODE_HACTION ||
                 node->type == QIM_NODE_POLICE
             ? 1
             : 0;
}

QIM_API int qim_is_ifelse_filter_type(const qim_node_t* node) {
  if (qim_is_filterlist_type(node) != 0) {
    return 1;
  }
  return node->type == QIM_NODE_GROUP && node->body.group.type == QIM_GROUP_IFELSE ? 1 : 0;
}
