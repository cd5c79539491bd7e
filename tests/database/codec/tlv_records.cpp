#include "tests/database/codec/tlv_records.h"

#include <cstring>

#include "mem.h"

namespace tlv_test {
namespace {

const Tables* in_use = &constant_tables;

// ---- Byte strings ----

uint32_t args_encode(const void* record, void**, void* out, uint32_t* len, uint32_t* done) {
  const auto* item = static_cast<const Item*>(record);
  return rov_cpy_fld_to_tlv(item->args, item->args_len, out, len, done);
}

uint32_t args_decode(void* record, const void* value, uint32_t len, void**) {
  auto* item = static_cast<Item*>(record);
  return rov_tlv_to_bufptr(&item->args, &item->args_len, nullptr, value, len);
}

uint32_t args_size(const void* record) {
  return static_cast<const Item*>(record)->args_len;
}

// ---- Lists ----

uint32_t item_alloc(void*, void** out, void*, uint32_t* size) {
  const uint32_t status = mem_zalloc(sizeof(Item), nullptr, out);
  *size = status == ROV_OK ? sizeof(Item) : 0;
  return status;
}

void* item_next(void* record) {
  return &static_cast<Item*>(record)->next;
}
void* owner_items(void* record) {
  return &static_cast<Owner*>(record)->items;
}
void* owner_count(void* record) {
  return &static_cast<Owner*>(record)->count;
}
void* owner_others(void* record) {
  return &static_cast<Owner*>(record)->others;
}
void* owner_count2(void* record) {
  return &static_cast<Owner*>(record)->count2;
}

template <const tlvo_list_t Tables::*kList>
struct ListCallbacks {
  static uint32_t encode(const void* record, void** iter, void* out, uint32_t* len,
                         uint32_t* done) {
    return rov_tlv_from_listel(&(in_use->*kList), record, iter, out, len, done);
  }
  static uint32_t decode(void* record, const void* value, uint32_t len, void** iter) {
    return rov_tlv_to_listel(&(in_use->*kList), record, value, len, iter);
  }
  static uint32_t size(const void* record) {
    return rov_tlv_listel_tlvsize(&(in_use->*kList), record);
  }
  static uint32_t count(const void* record) {
    return rov_tlv_listptr_nels(&(in_use->*kList), record);
  }

  static constexpr tlvo_field_t field(uint32_t id) {
    return list_field(id, count, encode, decode, size);
  }
};

// ---- The union ----

uint32_t body_encode(const void* record, void**, void* out, uint32_t* len, uint32_t* done) {
  const auto* any = static_cast<const Any*>(record);
  *done = 1;
  return rov_tlva_from_union(any->type, in_use->members, any->body, len, out);
}

uint32_t body_decode(void* record, const void* value, uint32_t len, void**) {
  auto* any = static_cast<Any*>(record);
  return rov_tlva_to_union(len, value, in_use->members, &any->type, any->body);
}

uint32_t body_size(const void* record) {
  const auto* any = static_cast<const Any*>(record);
  return rov_tlva_union_siz(any->type, in_use->members, any->body);
}

// ---- The tables ----

// `self` is where they will lie.
constexpr Tables make_tables(const Tables* self) {
  Tables made{};
  made.ints = {
      table_head("ints", 0x21, sizeof(Ints)),
      {int_field(3, 4, offsetof(Ints, four)), int_field(1, 2, offsetof(Ints, two)),
       int_field(2, 8, offsetof(Ints, eight)), int_field(4, 1, offsetof(Ints, one)), end_field()}};
  made.outer = {table_head("outer", 0x22, sizeof(Outer)),
                {int_field(1, 4, offsetof(Outer, before)),
                 record_field(2, offsetof(Outer, inner), sizeof(Ints), &self->ints.head),
                 int_field(3, 4, offsetof(Outer, after)), end_field()}};
  made.item = {
      table_head("item", 0x23, sizeof(Item)),
      {int_field(1, 4, offsetof(Item, type)),
       value_field(2, offsetof(Item, args), args_encode, args_decode, args_size), end_field()}};
  made.owner = {table_head("owner", 0x24, sizeof(Owner)),
                {int_field(3, 4, offsetof(Owner, flags)), ListCallbacks<&Tables::items>::field(4),
                 ListCallbacks<&Tables::others>::field(5), end_field()}};
  made.empty = {table_head("empty", 0x26, 8), {end_field()}};
  made.any = {
      table_head("any", 0x25, sizeof(Any)),
      {int_field(2, 4, offsetof(Any, flags)), int_field(1, 4, offsetof(Any, group)),
       value_field(3, offsetof(Any, body), body_encode, body_decode, body_size), end_field()}};
  made.item_link = {item_next, item_alloc, &self->item.head, nullptr, nullptr};
  made.items = {owner_items, item_alloc, &self->item.head, &self->item_link, owner_count};
  made.others = {owner_others, item_alloc, &self->item.head, &self->item_link, owner_count2};
  const tlvo_table_t* const members[TLVO_UNION_MEMBERS] = {
      &self->ints.head, &self->owner.head, &self->outer.head, &self->empty.head, &self->empty.head,
      &self->item.head, &self->empty.head, &self->empty.head, &self->empty.head, &self->empty.head};
  const uint32_t types[TLVO_UNION_MEMBERS] = {1, 4, 2, 5, 6, 3, 9, 7, 8, 10};
  for (size_t i = 0; i < TLVO_UNION_MEMBERS; ++i) made.members[i] = {types[i], members[i], 0};
  return made;
}

}  // namespace

constinit const Tables constant_tables = make_tables(&constant_tables);
constinit Tables writable_tables = make_tables(&writable_tables);

bool use_tables(const Tables& used) {
  in_use = &used;
  return true;
}

void release(Item* item) {
  if (item->args != nullptr) mem_free(item->args, nullptr);
  item->args = nullptr;
}

void release_list(Item* first) {
  while (first != nullptr) {
    Item* item = first;
    first = item->next;
    release(item);
    mem_free(item, nullptr);
  }
}

void release(Owner* owner) {
  release_list(owner->items);
  release_list(owner->others);
  owner->items = owner->others = nullptr;
}

void release(Any* any) {
  if (any->type == 3) release(reinterpret_cast<Item*>(any->body));
  if (any->type == 4) release(reinterpret_cast<Owner*>(any->body));
}

Item* new_item(uint32_t type, const std::string& args, Item* next) {
  void* block = nullptr;
  void* copy = nullptr;
  const mem_request_t requests[] = {{sizeof(Item), &block},
                                    {static_cast<uint32_t>(args.size()), &copy}};
  if (mem_alloc_ary(2, requests, nullptr) != ROV_OK) return nullptr;
  if (!args.empty()) std::memcpy(copy, args.data(), args.size());
  auto* item = static_cast<Item*>(block);
  item->next = next;
  item->type = type;
  item->args_len = static_cast<uint32_t>(args.size());
  item->args = copy;
  return item;
}

std::string args_of(const Item* item) {
  return item->args == nullptr ? std::string()
                               : std::string(static_cast<const char*>(item->args), item->args_len);
}

}  // namespace tlv_test
