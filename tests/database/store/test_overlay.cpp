// The overlay of edits against an ordered map.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

#include "database/store/overlay.h"
#include "tests/database/random.h"

namespace {

using rov::Bytes;
using rov::Overlay;
using rov::Table;

Bytes bytes(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), static_cast<uint32_t>(text.size())};
}
std::string text(Bytes from) {
  return {reinterpret_cast<const char*>(from.data), from.len};
}
std::string value_of(const Overlay::Edit* edit) {
  return text({edit->value, edit->len});
}

void put(Overlay& overlay, Table table, const std::string& key, const std::string& value) {
  const auto len = static_cast<uint32_t>(value.size());
  uint8_t* place = overlay.put(table, bytes(key), len, len);
  ASSERT_NE(place, nullptr);
  memcpy(place, value.data(), value.size());
}

TEST(Overlay, BeginsEmpty) {
  const Overlay overlay;
  EXPECT_TRUE(overlay.empty());
  EXPECT_EQ(overlay.first(Table::kNodes), nullptr);
  EXPECT_EQ(overlay.find(Table::kNodes, bytes("a")), nullptr);
  EXPECT_EQ(overlay.ge(Table::kNodes, bytes("a")), nullptr);
  EXPECT_EQ(overlay.le(Table::kNodes, bytes("a")), nullptr);
}

TEST(Overlay, TablesAreApart) {
  Overlay overlay;
  put(overlay, Table::kNodes, "key1", "n");
  put(overlay, Table::kPrivate, "key1", "p");
  EXPECT_EQ(value_of(overlay.find(Table::kNodes, bytes("key1"))), "n");
  EXPECT_EQ(value_of(overlay.find(Table::kPrivate, bytes("key1"))), "p");
  EXPECT_EQ(overlay.find(Table::kReferrers, bytes("key1")), nullptr);
}

TEST(Overlay, PutKeepsContentsWhenAValueGrowsAndShrinks) {
  Overlay overlay;
  put(overlay, Table::kNodes, "k", "abcdef");
  EXPECT_EQ(text({overlay.put(Table::kNodes, bytes("k"), 3, 3), 3}), "abc");
  const uint8_t* grown = overlay.put(Table::kNodes, bytes("k"), 100, 200);
  EXPECT_EQ(text({grown, 3}), "abc");
  EXPECT_EQ(overlay.put(Table::kNodes, bytes("k"), 200, 200), grown);
}

TEST(Overlay, ReplaceLeavesTheOldValueReadable) {
  Overlay overlay;
  put(overlay, Table::kNodes, "k", "old");
  const uint8_t* old = overlay.find(Table::kNodes, bytes("k"))->value;
  uint8_t* fresh = overlay.replace(Table::kNodes, bytes("k"), 3, 3);
  memcpy(fresh, "new", 3);
  EXPECT_EQ(text({old, 3}), "old");
  EXPECT_EQ(value_of(overlay.find(Table::kNodes, bytes("k"))), "new");
}

TEST(Overlay, ErasedKeysStayAsDeletions) {
  Overlay overlay;
  put(overlay, Table::kNodes, "b", "1");
  ASSERT_TRUE(overlay.erase(Table::kNodes, bytes("b")));
  ASSERT_TRUE(overlay.erase(Table::kNodes, bytes("a")));
  EXPECT_EQ(overlay.first(Table::kNodes)->value, nullptr);
  EXPECT_EQ(text(overlay.first(Table::kNodes)->key()), "a");
  EXPECT_EQ(overlay.find(Table::kNodes, bytes("b"))->value, nullptr);
  EXPECT_FALSE(overlay.empty());
  put(overlay, Table::kNodes, "b", "2");
  EXPECT_EQ(value_of(overlay.find(Table::kNodes, bytes("b"))), "2");
}

TEST(Overlay, AgreesWithAnOrderedMap) {
  testing_rov::Random random(20240501);
  Overlay overlay;
  std::map<std::string, std::optional<std::string>> model;
  const auto random_key = [&] {
    std::string key(1 + random.below(27), '\0');
    for (char& c : key) c = static_cast<char>(random.below(3) == 0 ? 0 : random.below(4));
    return key;
  };
  for (int step = 0; step < 20000; ++step) {
    const std::string key = random_key();
    if (random.below(4) == 0) {
      ASSERT_TRUE(overlay.erase(Table::kDataSets, bytes(key)));
      model[key] = std::nullopt;
    } else {
      const std::string value(random.below(40), static_cast<char>(random()));
      put(overlay, Table::kDataSets, key, value);
      model[key] = value;
    }
    const std::string asked = random_key();
    const auto at_or_after = model.lower_bound(asked);
    const Overlay::Edit* ge = overlay.ge(Table::kDataSets, bytes(asked));
    ASSERT_EQ(ge == nullptr, at_or_after == model.end());
    if (ge != nullptr) {
      ASSERT_EQ(text(ge->key()), at_or_after->first);
    }
    const auto after = model.upper_bound(asked);
    const Overlay::Edit* le = overlay.le(Table::kDataSets, bytes(asked));
    ASSERT_EQ(le == nullptr, after == model.begin());
    if (le != nullptr) {
      ASSERT_EQ(text(le->key()), std::prev(after)->first);
    }
  }
  const Overlay::Edit* edit = overlay.first(Table::kDataSets);
  for (const auto& [key, value] : model) {
    ASSERT_NE(edit, nullptr);
    ASSERT_EQ(text(edit->key()), key);
    ASSERT_EQ(edit->value != nullptr, value.has_value());
    if (value) {
      ASSERT_EQ(value_of(edit), *value);
    }
    ASSERT_EQ(overlay.find(Table::kDataSets, bytes(key)), edit);
    edit = edit->next[0];
  }
  EXPECT_EQ(edit, nullptr);
}

TEST(Overlay, AscendingKeysStayInOrderBesideOthers) {
  Overlay overlay;
  for (uint32_t n = 0; n < 5000; ++n) {
    uint8_t key[4];
    rov::store_be32(key, n % 10 == 9 ? n / 2 : n * 2);
    ASSERT_NE(overlay.put(Table::kNodes, {key, 4}, 1, 1), nullptr);
  }
  uint32_t last = 0;
  uint32_t count = 0;
  for (const Overlay::Edit* e = overlay.first(Table::kNodes); e != nullptr; e = e->next[0]) {
    const uint32_t key = rov::load_be32(e->key().data);
    if (count++ > 0) {
      ASSERT_GT(key, last);
    }
    last = key;
  }
  EXPECT_GT(count, 4500U);
}

// Entries that wait for their place come into it a batch at a time, between and behind others.
TEST(Overlay, KeysInAnyOrderComeIntoOrder) {
  testing_rov::Random random(20261121);
  Overlay overlay;
  std::map<std::string, bool> model;
  for (int batch = 0; batch < 40; ++batch) {
    const uint32_t count = 1 + random.below(300);
    for (uint32_t n = 0; n < count; ++n) {
      uint8_t key[8];
      rov::store_be32(key, random.below(2000));
      rov::store_be32(key + 4, random.below(3));
      const bool erased = random.below(5) == 0;
      if (erased) {
        ASSERT_TRUE(overlay.erase(Table::kReferrers, {key, 8}));
      } else {
        ASSERT_NE(overlay.put(Table::kReferrers, {key, 8}, 1, 1), nullptr);
      }
      model[text({key, 8})] = !erased;
    }
    const Overlay::Edit* edit = overlay.first(Table::kReferrers);
    for (const auto& [key, value] : model) {
      ASSERT_NE(edit, nullptr);
      ASSERT_EQ(text(edit->key()), key);
      ASSERT_EQ(edit->value != nullptr, value);
      edit = edit->next[0];
    }
    ASSERT_EQ(edit, nullptr);
  }
}

TEST(Overlay, SaysWhetherAnythingWasErased) {
  Overlay overlay;
  put(overlay, Table::kNodes, "k", "v");
  EXPECT_FALSE(overlay.erased(Table::kNodes));
  ASSERT_TRUE(overlay.erase(Table::kNodes, bytes("k")));
  EXPECT_TRUE(overlay.erased(Table::kNodes));
  put(overlay, Table::kNodes, "k", "v");
  EXPECT_TRUE(overlay.erased(Table::kNodes));
}

}  // namespace
