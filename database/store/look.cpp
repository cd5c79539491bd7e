// Looking at the pages that a commit is about to build on.
//
// The engine writes where it is led, so what leads it is looked at first: the way to each record that is
// put or taken away, the pages beside it, with which the engine may join its page, and the list of free
// pages. All of it is looked at anew, whatever it was when it was read before.
#include <cstring>

#include "database/base/error.h"
#include "database/file/search.h"
#include "database/store/engine.h"
#include "rov.h"

namespace rov {
namespace {

uint32_t give_up(Env* env, const PageDamage& damage) {
  condemn(env, damage);
  return dead_env(env);
}

// The engine begins with the last record of a table. Edits come in the order of their keys, so most are for
// the leaf of the one before; what lies behind the last record is all for the last leaf.
uint32_t look_at_table(Env* env, const Commit& commit, const Tree& tree, Table table,
                       const Overlay::Edit* edit) {
  constexpr uint32_t kLongest = 64;
  uint8_t highest[kLongest];
  memset(highest, 0xff, sizeof highest);
  Search search(commit, tree, order_of(table));
  Finding finding = search.look_around({highest, kLongest}, nullptr);
  const uint8_t* leaf = nullptr;
  for (bool behind_all = false; edit != nullptr && finding == Finding::kFound && !behind_all;
       edit = edit->next[0]) {
    uint32_t native = 0;
    finding = search.look_around(stored_key(table, edit->key(), &native), leaf);
    leaf = search.leaf();
    behind_all = finding == Finding::kFound && search.is_behind_all();
  }
  if (finding == Finding::kFound) return ROV_OK;
  if (finding == Finding::kDamaged) return give_up(env, search.damage());
  return give_up(env, {tree.root, "its tree has an entry that is none"});
}

}  // namespace

uint32_t look_before_writing(Env* env, MDB_txn* txn, const Overlay& edits, uint64_t base) {
  Meta meta;
  const int error = read_meta_of(env, base, &meta);
  if (error != 0) return engine_fail(error, env, "read a meta page");
  uint32_t status = map_find(env, txn, meta);
  if (status != ROV_OK) return status;
  const Commit commit = {&env->map, static_cast<uint32_t>(base), meta.last_page};
  PageDamage damage;
  KnownTrees trees;
  if (!find_trees(env, commit, base, meta, &trees, &damage)) return give_up(env, damage);
  for (uint32_t i = 0; i < kTables; ++i) {
    const auto table = static_cast<Table>(i);
    const Overlay::Edit* edit = edits.first(table);
    if (edit == nullptr) continue;
    const Tree& tree = trees.of[i];
    if (tree.depth == 0) continue;
    status = look_at_table(env, commit, tree, table, edit);
    if (status != ROV_OK) return status;
  }
  return look_at_free_pages(commit, meta.free, &damage) ? uint32_t{ROV_OK} : give_up(env, damage);
}

}  // namespace rov
