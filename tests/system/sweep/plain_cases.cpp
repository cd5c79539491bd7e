// Functions that compute, compare and convert: there is nothing in them that could fail.

#include <gtest/gtest.h>

#include "node/cache.h"
#include "qim.h"
#include "tests/library/query/support.h"
#include "tests/system/sweep/cases.h"

namespace sweep_test {
namespace {

using query_test::at_interface;

qim_dsetname_t a_name() {
  qim_dsetname_t name{};
  name.dest = at_interface(5);
  name.type = 0x305;
  name.dir = QIM_DIR_IN;
  return name;
}

Cases identifiers() {
  return {
      steady("qim_node_id_priv_create", [] { EXPECT_EQ(qim_node_id_priv_create(7), 0x00300007u); }),
      steady("qim_node_id_fields",
             [] { EXPECT_EQ(qim_node_id_fields(0x08300007, nullptr, nullptr), 2u); }),
      steady("qim_to_rov_node_id",
             [] {
               rov_node_id_t id;
               EXPECT_EQ(qim_to_rov_node_id(7, &id), 0u);
               EXPECT_EQ(qim_to_rov_node_id(0, &id), std::uint32_t{QIM_ERR_INVALID});
             }),
      steady("qim_to_rov_node_id_nochk",
             [] {
               rov_node_id_t id;
               qim_to_rov_node_id_nochk(7, &id);
               EXPECT_EQ(fake::node_of(id), 7u);
             }),
      steady("qim_from_rov_node_id",
             [] {
               const rov_node_id_t id = fake::id(7);
               EXPECT_EQ(qim_from_rov_node_id(&id), 7u);
             }),
      steady("rov_node_id_to_qim",
             [] {
               rov_node_id_t id = fake::id(7);
               rov_node_id_to_qim(&id.word[0]);
               EXPECT_EQ(id.word[0], 7u);
             }),
      steady("rov_node_id_from_qim",
             [] {
               rov_node_id_t id{{7, 0, 0, 0}};
               rov_node_id_from_qim(&id.word[0]);
               EXPECT_EQ(fake::node_of(id), 7u);
             }),
  };
}

Cases destinations() {
  return {
      steady("qim_if_policy_dest_set",
             [] {
               qim_policy_dest_t dest;
               qim_if_policy_dest_set(1, 2, 3, 4, &dest);
               EXPECT_EQ(dest.intf.ifix, 4u);
             }),
      steady("qim_if_policy_dest_get",
             [] {
               const qim_policy_dest_t dest = at_interface(5);
               std::uint16_t vdc, vrf, vlan;
               std::uint32_t ifix;
               EXPECT_EQ(qim_if_policy_dest_get(&dest, &vdc, &vrf, &vlan, &ifix), 0u);
             }),
      steady("qim_if_policy_dest_get2",
             [] {
               const qim_policy_dest_t dest = at_interface(5);
               std::uint16_t vdc, vlan;
               std::uint32_t vrf, ifix;
               EXPECT_EQ(qim_if_policy_dest_get2(&dest, &vdc, &vrf, &vlan, &ifix), 0u);
             }),
      steady("qim_srv_policy_dest_set",
             [] {
               qim_policy_dest_t dest;
               qim_srv_policy_dest_set(1, 2, &dest);
               EXPECT_EQ(dest.srv.srv_def, 2u);
             }),
      steady("qim_policy_dest_cmp",
             [] {
               const qim_policy_dest_t dest = at_interface(5);
               EXPECT_EQ(qim_policy_dest_cmp(&dest, &dest), 0);
             }),
      steady("qim_upstream_ifelse_get",
             [] {
               EXPECT_EQ(qim_upstream_ifelse_get(1, 2, 3), std::uint32_t{QIM_ERR_NOT_SUPPORTED});
             }),
  };
}

Cases names() {
  return {
      steady("qim_dsetname_hton",
             [] {
               qim_dsetname_t name = a_name();
               qim_dsetname_hton(&name);
             }),
      steady("qim_dsetname_ntoh",
             [] {
               qim_dsetname_t name = a_name();
               qim_dsetname_ntoh(&name);
             }),
      steady("qim_dsetname_for_if_policy",
             [] {
               qim_dsetname_t name;
               qim_dsetname_for_if_policy(0x305, 1, 2, 3, 4, 5, &name);
               EXPECT_EQ(name.dir, 1u);
             }),
      steady("qim_pinst_to_dsetname",
             [] {
               qim_pinst_fields_t fields{};
               fields.dest = at_interface(5);
               qim_dsetname_t name;
               qim_pinst_to_dsetname(&fields, &name);
             }),
      steady("qim_pinst_from_dsetname",
             [] {
               qim_dsetname_t name = a_name();
               qim_pinst_fields_t fields;
               qim_pinst_from_dsetname(&fields, &name);
             }),
      steady("qim_extract_pinst_from_sub",
             [] {
               qim_dsetname_t name = a_name();
               qim_dsetname_hton(&name);
               const rov_sub_t sub = {{}, &name};
               EXPECT_EQ(qim_extract_pinst_from_sub(&sub), 0x305u);
             }),
      steady("qim_dbg_dsetname_print",
             [] {
               qim_dsetname_t name = a_name();
               qim_dsetname_t other = a_name();
               EXPECT_NE(qim_dbg_dsetname_print(&name, &other, 1, 2, "", ""), nullptr);
             }),
  };
}

qim_node_t a_filter() {
  qim_node_t node{};
  node.type = QIM_NODE_FILTER;
  node.id = 7;
  return node;
}

Cases records() {
  return {
      steady("qim_is_filterlist_type",
             [] {
               const qim_node_t node = a_filter();
               EXPECT_EQ(qim_is_filterlist_type(&node), 1);
             }),
      steady("qim_is_actionlist_type",
             [] {
               const qim_node_t node = a_filter();
               EXPECT_EQ(qim_is_actionlist_type(&node), 0);
             }),
      steady("qim_is_ifelse_filter_type",
             [] {
               const qim_node_t node = a_filter();
               EXPECT_EQ(qim_is_ifelse_filter_type(&node), 1);
             }),
      steady("qim_link_ptr",
             [] {
               const qim_node_t node = a_filter();
               EXPECT_EQ(qim_link_ptr(&node, 0x081, nullptr, nullptr), 0u);
             }),
      steady("qim_node_cp",
             [] {
               const qim_node_t node = a_filter();
               qim_node_t copy;
               EXPECT_EQ(qim_node_cp(0, &node, &copy), 0u);
               EXPECT_EQ(copy.id, 7u);
             }),
      steady("qim_lib_get", [] { EXPECT_NE(qim_lib_get(), nullptr); }),
      steady("qim_dbg_errors",
             [] { qim_dbg_errors(QIM_ERR_INTERNAL, "somewhere", 7, qim_lib_get()); }),
  };
}

Cases lists() {
  return {
      steady("qim_rqst_to_rov",
             [] {
               rov_rqst_t rqst{};
               qim_rqst_to_rov(&rqst);
             }),
      steady("qim_rqst_from_rov",
             [] {
               rov_rqst_t rqst{};
               qim_rqst_from_rov(&rqst);
             }),
      steady("qim_rmtln_to_rov",
             [] {
               rov_rmtln_t rmtln{};
               qim_rmtln_to_rov(&rmtln);
             }),
      steady("qim_rmtln_from_rov",
             [] {
               rov_rmtln_t rmtln{};
               qim_rmtln_from_rov(&rmtln);
             }),
  };
}

// The cache, holding an entry.
void with_an_entry(const std::function<void(qim_node_cache_entry_t*)>& body) {
  qim_node_cache_entry_t entry{};
  entry.node = a_filter();
  entry.ses = fake::kSes;
  node_cache_max = 1;
  EXPECT_EQ(qim_node_cache_add(fake::kSes, &entry, qim_lib_get()), 0u);
  body(&entry);
  EXPECT_EQ(qim_node_cache_unlink(fake::kSes, 7, nullptr), 0u);
}

Cases lookups() {
  const auto looking_up = [](auto function) {
    return [function] {
      with_an_entry([function](qim_node_cache_entry_t* entry) {
        qim_node_cache_entry_t* found = nullptr;
        EXPECT_EQ(function(fake::kSes, 7, &found), 0u);
        EXPECT_EQ(found, entry);
      });
    };
  };
  return {steady("qim_node_cache_get", looking_up(qim_node_cache_get)),
          steady("qim_node_cache_unlink", looking_up(qim_node_cache_unlink))};
}

}  // namespace

Cases plain_cases() {
  Cases all;
  for (const auto family : {identifiers, destinations, names, records, lists, lookups}) {
    for (Case& one : family()) all.push_back(std::move(one));
  }
  return all;
}

}  // namespace sweep_test
