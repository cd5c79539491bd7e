// The store in memory behaves as a real one does.
#include "tests/fleet/support/fake_store.h"

namespace fleet_test {
namespace {

using namespace qim::fleet;
using std::chrono::milliseconds;

TEST(FleetFakeStore, ChangesUnderConditions) {
  FakeStore fake;
  const auto store = fake.connect();
  EXPECT_TRUE(store->change({{{"a", 0}}, {{"a", "1"}}}).done);
  EXPECT_FALSE(store->change({{{"a", 0}}, {{"a", "2"}}}).done);
  EXPECT_TRUE(store->change({{{"a", store->get("a").found->modified}}, {{"a", "3"}}}).done);
  EXPECT_EQ(fake.value("a"), "3");
  EXPECT_EQ(list_all(*store, "").size(), 1u);
}

TEST(FleetFakeStore, ListsInPages) {
  FakeStore fake;
  for (int i = 0; i < 100; i++) fake.put("p/" + std::to_string(100 + i), "x");
  fake.put("q", "x");
  EXPECT_EQ(list_all(*fake.connect(), "p/").size(), 100u);
}

TEST(FleetFakeStore, FailsAsItIsTold) {
  FakeStore fake;
  const auto store = fake.connect();
  fake.on_call([](const std::string& call, const std::string&) {
    return call == "change" ? FakeStore::Fault::lost_answer : FakeStore::Fault::denied;
  });
  EXPECT_THROW(store->change({{}, {{"a", "1"}}}), StoreError);
  EXPECT_THROW(list_all(*store, "a"), StoreError);
  EXPECT_EQ(fake.value("a"), "1");
  fake.on_call(nullptr);
  fake.on_answer([](KeyValue& item) { item.value = "lie"; });
  EXPECT_EQ(store->get("a").found->value, "lie");
}

TEST(FleetFakeStore, AWatchTellsOfChangesAndOfErasures) {
  FakeStore fake;
  const auto store = fake.connect();
  const auto watch = store->watch("a", store->get("a").header.revision);
  EXPECT_EQ(watch->wait(milliseconds(1)), WatchNews::quiet);
  fake.put("a", "1");
  EXPECT_EQ(watch->wait(milliseconds(1)), WatchNews::changed);
  fake.erase("a");
  EXPECT_EQ(watch->wait(milliseconds(1)), WatchNews::changed);
  fake.break_watches();
  EXPECT_THROW(watch->wait(milliseconds(1)), StoreError);
}

}  // namespace
}  // namespace fleet_test
