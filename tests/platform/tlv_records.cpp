#include "tests/platform/tlv_records.h"

#include <cstring>

#include "mem.h"

namespace tlv_test {
namespace {

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

const tlvo_list_t item_link = {item_next, item_alloc, &item_table.head, nullptr, nullptr};
const tlvo_list_t others_list = {owner_others, item_alloc, &item_table.head, &item_link,
                                 owner_count2};

template <const tlvo_list_t* kList>
struct ListCallbacks {
  static uint32_t encode(const void* record, void** iter, void* out, uint32_t* len,
                         uint32_t* done) {
    return rov_tlv_from_listel(kList, record, iter, out, len, done);
  }
  static uint32_t decode(void* record, const void* value, uint32_t len, void** iter) {
    return rov_tlv_to_listel(kList, record, value, len, iter);
  }
  static uint32_t size(const void* record) { return rov_tlv_listel_tlvsize(kList, record); }
  static uint32_t count(const void* record) { return rov_tlv_listptr_nels(kList, record); }

  static tlvo_field_t field(uint32_t id) { return list_field(id, count, encode, decode, size); }
};

// ---- The union ----

uint32_t body_encode(const void* record, void**, void* out, uint32_t* len, uint32_t* done) {
  const auto* any = static_cast<const Any*>(record);
  *done = 1;
  return rov_tlva_from_union(any->type, any_members, any->body, len, out);
}

uint32_t body_decode(void* record, const void* value, uint32_t len, void**) {
  auto* any = static_cast<Any*>(record);
  return rov_tlva_to_union(len, value, any_members, &any->type, any->body);
}

uint32_t body_size(const void* record) {
  const auto* any = static_cast<const Any*>(record);
  return rov_tlva_union_siz(any->type, any_members, any->body);
}

}  // namespace

tlvo_table_t table_head(const char* name, uint32_t struct_id, size_t record_size) {
  tlvo_table_t head{};
  head.record_size = static_cast<uint32_t>(record_size);
  head.name = name;
  head.struct_id = struct_id;
  return head;
}

tlvo_field_t int_field(uint32_t id, size_t width, size_t position) {
  tlvo_field_t field{};
  field.id = id;
  field.width = static_cast<uint32_t>(width);
  field.position = static_cast<uint32_t>(position);
  field.kind = TLVO_KIND_INT;
  return field;
}

tlvo_field_t record_field(uint32_t id, size_t position, const tlvo_table_t* record) {
  tlvo_field_t field = int_field(id, record->record_size, position);
  field.kind = TLVO_KIND_RECORD;
  field.record = record;
  return field;
}

tlvo_field_t value_field(uint32_t id, size_t position, tlvo_encode_fn encode, tlvo_decode_fn decode,
                         tlvo_size_fn size) {
  tlvo_field_t field = int_field(id, sizeof(void*), position);
  field.kind = TLVO_KIND_VALUE;
  field.encode = encode;
  field.decode = decode;
  field.size = size;
  return field;
}

tlvo_field_t list_field(uint32_t id, tlvo_count_fn count, tlvo_encode_fn encode,
                        tlvo_decode_fn decode, tlvo_size_fn size) {
  tlvo_field_t field = value_field(id, 0, encode, decode, size);
  field.width = 0;
  field.kind = TLVO_KIND_LIST;
  field.count = count;
  return field;
}

tlvo_field_t end_field() {
  tlvo_field_t field{};
  field.position = TLVO_FIELD_END;
  return field;
}

const Table<4> ints_table = {
    table_head("ints", 0x21, sizeof(Ints)),
    {int_field(3, 4, offsetof(Ints, four)), int_field(1, 2, offsetof(Ints, two)),
     int_field(2, 8, offsetof(Ints, eight)), int_field(4, 1, offsetof(Ints, one)), end_field()}};

const Table<3> outer_table = {table_head("outer", 0x22, sizeof(Outer)),
                              {int_field(1, 4, offsetof(Outer, before)),
                               record_field(2, offsetof(Outer, inner), &ints_table.head),
                               int_field(3, 4, offsetof(Outer, after)), end_field()}};

const Table<2> item_table = {
    table_head("item", 0x23, sizeof(Item)),
    {int_field(1, 4, offsetof(Item, type)),
     value_field(2, offsetof(Item, args), args_encode, args_decode, args_size), end_field()}};

const tlvo_list_t items_list = {owner_items, item_alloc, &item_table.head, &item_link, owner_count};

const Table<3> owner_table = {
    table_head("owner", 0x24, sizeof(Owner)),
    {int_field(3, 4, offsetof(Owner, flags)), ListCallbacks<&items_list>::field(4),
     ListCallbacks<&others_list>::field(5), end_field()}};

const Table<0> empty_table = {table_head("empty", 0x26, 8), {end_field()}};

const tlvo_union_t any_members[TLVO_UNION_MEMBERS] = {
    {1, &ints_table.head, 0},  {4, &owner_table.head, 0}, {2, &outer_table.head, 0},
    {5, &empty_table.head, 0}, {6, &empty_table.head, 0}, {3, &item_table.head, 0},
    {9, &empty_table.head, 0}, {7, &empty_table.head, 0}, {8, &empty_table.head, 0},
    {10, &empty_table.head, 0}};

const Table<3> any_table = {
    table_head("any", 0x25, sizeof(Any)),
    {int_field(2, 4, offsetof(Any, flags)), int_field(1, 4, offsetof(Any, group)),
     value_field(3, offsetof(Any, body), body_encode, body_decode, body_size), end_field()}};

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
