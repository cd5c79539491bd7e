// Data-set names: each form leads back to the one it came from.
#include <cstring>

#include "policy/base/dsetname.h"
#include "policy/base/json_text.h"
#include "qim.h"
#include "tests/fuzz/targets.h"

namespace fuzz {
namespace {

bool same(const qim_dsetname_t& one, const qim_dsetname_t& other) {
  return memcmp(&one, &other, sizeof one) == 0;
}

void convert(const qim_dsetname_t& name) {
  qim_dsetname_t copy = name;
  qim_dsetname_ntoh(&copy);
  qim_dsetname_hton(&copy);
  require(same(copy, name), "byte order there and back changes nothing");
}

// Fields that the format uses survive; what it does not use becomes zero once.
void decode(const qim_dsetname_t& name) {
  qim_dsetname_t copy = name;
  qim_pinst_fields_t fields = {};
  qim_pinst_from_dsetname(&fields, &copy);
  qim_dsetname_t made = {};
  qim_pinst_to_dsetname(&fields, &made);
  copy = made;
  qim_pinst_fields_t again = {};
  qim_pinst_from_dsetname(&again, &copy);
  qim_dsetname_t made_again = {};
  qim_pinst_to_dsetname(&again, &made_again);
  require(same(made, made_again), "a name that was built is built again from its fields");
  require(!qimctl::dset_text(fields).empty(), "every name has a text");
}

void as_json(const qim_dsetname_t& name) {
  const qimctl::JsonDocument value = qimctl::parse_json(qimctl::dset_to_json(name).dump(), "");
  require(same(qimctl::dset_from_json(value.view()), name),
          "JSON gives the name back byte for byte");
}

}  // namespace

void dsetname(const uint8_t* bytes, size_t size) {
  qim_dsetname_t name = {};
  memcpy(&name, bytes, size < sizeof name ? size : sizeof name);
  convert(name);
  decode(name);
  as_json(name);
  qim_dsetname_t second = name;
  if (size >= 2 * sizeof name) memcpy(&second, bytes + sizeof name, sizeof second);
  require(qim_dbg_dsetname_print(&name, &second, 1, 2, "", "") != nullptr, "it can be printed");
}

}  // namespace fuzz
