#include "database/graph/backlog.h"

#include <algorithm>
#include <cstdlib>

namespace rov {
namespace {

constexpr uint32_t kFirstRoom = 64;
constexpr uint32_t kMostRoom = UINT32_MAX / sizeof(Reference);
constexpr uint32_t kFewReferences = 256;  // so many are compared with each other

constexpr uint32_t kDigitBits = 11;
constexpr uint32_t kDigits = 1U << kDigitBits;

uint32_t digit_of(const Reference& reference, uint32_t shift) {
  return reference.target >> shift & (kDigits - 1);
}

bool before(const Reference& a, const Reference& b) {
  if (a.target != b.target) return a.target < b.target;
  if (a.owner != b.owner) return a.owner < b.owner;
  return a.field < b.field;
}

// Orders by one digit of the target and keeps the order of what has the same digit. False when all
// have the same one, and nothing was done.
bool sort_by_digit(const Reference* from, Reference* to, uint32_t count, uint32_t shift) {
  uint32_t places[kDigits] = {};
  for (uint32_t at = 0; at < count; ++at) ++places[digit_of(from[at], shift)];
  if (places[digit_of(from[0], shift)] == count) return false;
  uint32_t place = 0;
  for (uint32_t& here : places) {
    const uint32_t some = here;
    here = place;
    place += some;
  }
  for (uint32_t at = 0; at < count; ++at) to[places[digit_of(from[at], shift)]++] = from[at];
  return true;
}

// Orders by target alone. *spare is as large as *list; they may change places.
void sort_by_target(Reference** list, Reference** spare, uint32_t count) {
  for (uint32_t shift = 0; shift < 32; shift += kDigitBits) {
    if (sort_by_digit(*list, *spare, count, shift)) std::swap(*list, *spare);
  }
}

// Orders what has one target; as a rule links come in the order of their owners.
void sort_each_target(Reference* list, uint32_t count) {
  for (uint32_t from = 0, to = 0; from < count; from = to) {
    while (to < count && list[to].target == list[from].target) ++to;
    if (!std::is_sorted(list + from, list + to, before)) std::sort(list + from, list + to, before);
  }
}

}  // namespace

Backlog::~Backlog() {
  free(list_);
}

bool Backlog::add(const Reference& reference) {
  if (count_ == room_) {
    if (room_ > kMostRoom / 2) return false;
    const uint32_t room = room_ == 0 ? kFirstRoom : room_ * 2;
    auto* list = static_cast<Reference*>(realloc(list_, room * sizeof(Reference)));
    if (list == nullptr) return false;
    list_ = list;
    room_ = room;
  }
  list_[count_++] = reference;
  return true;
}

void Backlog::take(Backlog& from) {
  std::swap(list_, from.list_);
  std::swap(count_, from.count_);
  std::swap(room_, from.room_);
}

void Backlog::sort() {
  Reference* spare = nullptr;
  if (count_ > kFewReferences) {
    spare = static_cast<Reference*>(malloc(count_ * sizeof(Reference)));
  }
  if (spare != nullptr) {
    sort_by_target(&list_, &spare, count_);
    room_ = count_;  // the spare list, which may have become this one, has no more
    sort_each_target(list_, count_);
  } else {
    std::sort(list_, list_ + count_, before);
  }
  free(spare);
  const auto same = [](const Reference& a, const Reference& b) {
    return a.target == b.target && a.owner == b.owner;
  };
  count_ = static_cast<uint32_t>(std::unique(list_, list_ + count_, same) - list_);
}

}  // namespace rov
