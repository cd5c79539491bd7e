// The client against members of a real store.
#include <chrono>
#include <filesystem>
#include <memory>
#include <thread>

#include "fleet/base/files.h"
#include "tests/fleet/support/certificates.h"
#include "tests/fleet/support/cluster.h"
#include "tests/support/pace.h"

namespace fleet_test {
namespace {

using namespace qim::fleet;
using std::chrono::milliseconds;

milliseconds patience() {
  return milliseconds(pace::patience_ms());
}

StoreFailure failure_of(const std::function<void()>& call) {
  try {
    call();
  } catch (const StoreError& error) {
    return error.failure();
  }
  ADD_FAILURE() << "nothing failed";
  return StoreFailure::unreachable;
}

// Until it works, as those do who use the store.
template <typename Call>
auto insist(Call call) {
  const auto until = std::chrono::steady_clock::now() + patience();
  for (;;) {
    try {
      return call();
    } catch (const StoreError&) {
      if (std::chrono::steady_clock::now() > until) throw;
      std::this_thread::sleep_for(milliseconds(20));
    }
  }
}

void write(Store& store, const std::string& key, const std::string& value) {
  ASSERT_TRUE(insist([&] { return store.change({{}, {{key, value}}}); }).done);
}

// Members that several cases use, each with keys of its own; whoever breaks them puts them in order.
class FleetEtcdShared : public testing::Test {
 protected:
  static void TearDownTestSuite() {
    single_.reset();
    three_.reset();
  }
  static Cluster& single() {
    if (!single_) single_ = std::make_unique<Cluster>(Cluster::Options{.members = 1});
    return *single_;
  }
  static Cluster& three() {
    if (!three_) three_ = std::make_unique<Cluster>();
    return *three_;
  }

 private:
  static std::unique_ptr<Cluster> single_;
  static std::unique_ptr<Cluster> three_;
};

std::unique_ptr<Cluster> FleetEtcdShared::single_;
std::unique_ptr<Cluster> FleetEtcdShared::three_;

TEST_F(FleetEtcdShared, ReadsAndChangesUnderConditions) {
  const Cluster& cluster = three();
  const auto store = cluster.connect();
  EXPECT_FALSE(store->get("a").found);
  EXPECT_TRUE(store->change({{{"a", 0}}, {{"a", "1"}, {"b", std::string("\0\xff", 2)}}}).done);
  EXPECT_FALSE(store->change({{{"a", 0}}, {{"a", "2"}}}).done);
  const GetAnswer a = store->get("a");
  ASSERT_TRUE(a.found);
  EXPECT_EQ(a.found->value, "1");
  EXPECT_NE(a.header.cluster, 0u);
  EXPECT_TRUE(store->change({{{"a", a.found->modified}}, {{"a", "3"}}}).done);
  EXPECT_EQ(store->get("b").found->value, std::string("\0\xff", 2));
  EXPECT_TRUE(store->change({}).done);
}

TEST(FleetEtcd, ListsAllThatBeginsWithAPrefixWhateverItsLength) {
  const Cluster cluster({.members = 1});
  const auto store = cluster.connect();
  for (int i = 0; i < 40; i++) write(*store, "p/" + std::to_string(100 + i), "small");
  for (int i = 0; i < 12; i++)
    write(*store, "p/" + std::to_string(200 + i), std::string(1024 * 1024, 'x'));
  write(*store, "q", "no");
  const auto all = list_all(*store, "p/");
  ASSERT_EQ(all.size(), 52u);
  EXPECT_EQ(all.front().key, "p/100");
  EXPECT_EQ(all.back().key, "p/211");
  EXPECT_EQ(list_all(*store, "p/", true).size(), 52u);
  EXPECT_EQ(list_all(*store, "", true).size(), 53u);
  EXPECT_TRUE(list_all(*store, "none/").empty());
}

TEST_F(FleetEtcdShared, RefusesWhatIsTooLarge) {
  const Cluster& cluster = single();
  const auto store = cluster.connect();
  EXPECT_EQ(failure_of([&] {
              store->change({{}, {{"large/a", std::string(2u << 20u, 'x')}}});
            }),
            StoreFailure::refused);
}

TEST_F(FleetEtcdShared, AWatchTellsOfChangesAndOfNothingElse) {
  const Cluster& cluster = single();
  const auto store = cluster.connect();
  write(*store, "told/a", "1");
  const auto watch = store->watch("told/a", store->get("told/a").header.revision);
  EXPECT_EQ(watch->wait(milliseconds(100)), WatchNews::quiet);
  write(*store, "told/b", "1");
  EXPECT_EQ(watch->wait(milliseconds(100)), WatchNews::quiet);
  write(*store, "told/a", "2");
  EXPECT_EQ(watch->wait(patience()), WatchNews::changed);
  EXPECT_EQ(watch->wait(milliseconds(100)), WatchNews::quiet);
}

TEST_F(FleetEtcdShared, AWatchTellsWhatHappenedBeforeItBegan) {
  const Cluster& cluster = single();
  const auto store = cluster.connect();
  write(*store, "before/a", "1");
  const int64_t revision = store->get("before/a").header.revision;
  write(*store, "before/a", "2");
  EXPECT_EQ(store->watch("before/a", revision)->wait(patience()), WatchNews::changed);
}

TEST_F(FleetEtcdShared, AWatchCanBeInterrupted) {
  const Cluster& cluster = single();
  const auto store = cluster.connect();
  const auto watch = store->watch("interrupted/a", store->get("interrupted/a").header.revision);
  std::thread other([&watch] {
    std::this_thread::sleep_for(milliseconds(100));
    watch->interrupt();
  });
  EXPECT_EQ(watch->wait(patience() * 10), WatchNews::quiet);
  EXPECT_EQ(watch->wait(patience() * 10), WatchNews::quiet);
  other.join();
}

TEST_F(FleetEtcdShared, AWatchBehindACompactionSaysSo) {
  const Cluster& cluster = single();
  const auto store = cluster.connect();
  for (int i = 0; i < 5; i++) write(*store, "compacted/a", std::to_string(i));
  const int64_t newest = store->get("compacted/a").header.revision;
  cluster.control({"compact", std::to_string(newest)});
  const auto watch = store->watch("compacted/a", 1);
  EXPECT_EQ(failure_of([&] { watch->wait(patience()); }), StoreFailure::compacted);
}

TEST_F(FleetEtcdShared, GoesOnWhenTheLeaderDies) {
  Cluster& cluster = three();
  const auto store = cluster.connect();
  write(*store, "leader/a", "1");
  const int leader = cluster.leader();
  ASSERT_GE(leader, 0);
  cluster.kill(leader);
  EXPECT_EQ(insist([&] { return store->get("leader/a"); }).found->value, "1");
  write(*store, "leader/a", "2");
  cluster.start(leader);
  EXPECT_EQ(insist([&] { return store->get("leader/a"); }).found->value, "2");
  cluster.await();
}

TEST_F(FleetEtcdShared, AMemberThatHangsIsLeft) {
  Cluster& cluster = three();
  EtcdOptions options = cluster.options();
  options.timeout = pace::paced(milliseconds(1000));
  const auto store = connect_etcd(options);
  write(*store, "hangs/a", "1");
  for (int member = 0; member < 3; member++) {
    cluster.stop(member);
    EXPECT_EQ(insist([&] { return store->get("hangs/a"); }).found->value, "1");
    cluster.resume(member);
  }
}

// What a call takes that another thread gives up soon after its beginning.
template <typename Call>
milliseconds given_up(Store& store, Call call) {
  const auto begin = std::chrono::steady_clock::now();
  std::thread other([&] {
    std::this_thread::sleep_for(milliseconds(200));
    store.give_up();
  });
  EXPECT_EQ(failure_of(call), StoreFailure::unreachable);
  other.join();
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - begin);
}

TEST(FleetEtcd, ACallThatNobodyAnswersCanBeGivenUp) {
  Cluster cluster({1, false, ""});
  EtcdOptions options = cluster.options();
  options.endpoints.push_back(options.endpoints.front());
  options.timeout = patience() * 4;
  const auto known = connect_etcd(options);
  write(*known, "a", "1");
  cluster.stop(0);
  EXPECT_LT(given_up(*known, [&] { known->get("a"); }), patience());
  EXPECT_EQ(failure_of([&] { known->watch("a", 1); }), StoreFailure::unreachable);
  const auto fresh = connect_etcd(options);
  EXPECT_LT(given_up(*fresh, [&] { fresh->change({{}, {{"a", "2"}}}); }), patience());
  cluster.resume(0);
}

TEST(FleetEtcd, WithoutAMajorityItSaysSoInTime) {
  Cluster cluster;
  EtcdOptions options = cluster.options();
  options.timeout = milliseconds(500);
  const auto store = connect_etcd(options);
  write(*store, "a", "1");
  const auto watch = store->watch("a", 1 << 20);
  cluster.kill(0);
  cluster.kill(1);
  EXPECT_EQ(failure_of([&] { store->get("a"); }), StoreFailure::unreachable);
  const StoreFailure failure = failure_of([&] { store->change({{}, {{"a", "2"}}}); });
  EXPECT_TRUE(failure == StoreFailure::unknown || failure == StoreFailure::unreachable);
  EXPECT_EQ(failure_of([&] { watch->wait(patience()); }), StoreFailure::unreachable);
  cluster.kill(2);
  EXPECT_EQ(failure_of([&] { store->change({{}, {{"a", "2"}}}); }), StoreFailure::unreachable);
  EXPECT_EQ(failure_of([&] { store->watch("a", 1); }), StoreFailure::unreachable);
}

TEST(FleetEtcd, WantsOptionsThatGoTogether) {
  EXPECT_THROW(connect_etcd({}), ConfigError);
  EtcdOptions options;
  options.endpoints = {"127.0.0.1:1"};
  options.certificate = "c";
  EXPECT_THROW(connect_etcd(options), ConfigError);
  options.key = "k";
  EXPECT_THROW(connect_etcd(options), ConfigError);
  options.ca = "/none";
  EXPECT_THROW(connect_etcd(options), ConfigError);
}

TEST(FleetEtcd, HasItsSettings) {
  Settings settings = Settings::parse("endpoints = a:1,b:2\nca = c\ntimeout = 9s\n", "f");
  const EtcdOptions options = etcd_options(settings);
  EXPECT_EQ(options.endpoints.size(), 2u);
  EXPECT_EQ(options.ca, "c");
  EXPECT_EQ(options.timeout, milliseconds(9000));
  EXPECT_TRUE(settings.problems().empty());
}

TEST(FleetEtcd, RolesAndCertificatesSayWhoMayDoWhat) {
  const Cluster cluster({.members = 1, .tls = true});
  for (const char* line :
       {"user add root --no-password", "user grant-role root root", "role add device",
        "role grant-permission device read --prefix=true /q/h/", "user add d1 --no-password",
        "user grant-role d1 device", "auth enable"}) {
    std::vector<std::string> words;
    std::istringstream text(line);
    for (std::string word; text >> word;) words.push_back(word);
    if (std::string(line) == "user grant-role root root") {
      try {
        cluster.control({"role", "add", "root"});
      } catch (const std::exception&) {
      }
    }
    cluster.control(words);
  }
  const auto root = cluster.connect("root");
  const auto device = cluster.connect("d1");
  write(*root, "/q/h/edge", "head");
  EXPECT_EQ(insist([&] { return device->get("/q/h/edge"); }).found->value, "head");
  EXPECT_EQ(failure_of([&] {
              device->change({{}, {{"/q/h/edge", "mine"}}});
            }),
            StoreFailure::denied);
  EXPECT_EQ(failure_of([&] { device->get("/q/r/edge"); }), StoreFailure::denied);
  const auto watch = device->watch("/q/r/edge", 1);
  EXPECT_EQ(failure_of([&] { watch->wait(patience()); }), StoreFailure::denied);
  EtcdOptions nobody = cluster.options("d1");
  nobody.certificate = nobody.key = "";
  nobody.timeout = milliseconds(500);
  EXPECT_EQ(failure_of([&] { connect_etcd(nobody)->get("/q/h/edge"); }), StoreFailure::unreachable);
}

TEST(FleetEtcd, AUserSignsInAndDoesSoAgain) {
  Cluster cluster({.members = 1});
  cluster.control({"user", "add", "root:secret"});
  cluster.control({"role", "add", "root"});
  cluster.control({"user", "grant-role", "root", "root"});
  cluster.control({"auth", "enable"});
  EtcdOptions options = cluster.options();
  EXPECT_EQ(failure_of([&] { connect_etcd(options)->get("a"); }), StoreFailure::refused);
  options.user = "root";
  EXPECT_THROW(connect_etcd(options), ConfigError);
  options.password = cluster.directory() + "/password";
  write_file(options.password, "wrong\n", 0600);
  EXPECT_EQ(failure_of([&] { connect_etcd(options)->get("a"); }), StoreFailure::refused);
  write_file(options.password, "secret\n", 0600);
  const auto store = connect_etcd(options);
  write(*store, "a", "1");
  const auto watch = store->watch("a", 1);
  EXPECT_EQ(watch->wait(patience()), WatchNews::changed);
  // A member that starts anew has forgotten all tokens.
  cluster.kill(0);
  cluster.start(0);
  EXPECT_EQ(insist([&] { return store->get("a"); }).found->value, "1");
}

TEST(FleetEtcd, CertificatesThatAreRenewedAreUsed) {
  const Cluster cluster({.members = 1, .tls = true});
  EtcdOptions options = cluster.options("d2");
  options.timeout = pace::paced(milliseconds(500));
  const std::string at = cluster.directory() + "/d2";
  make_certificate(cluster.directory(), "d2", -1);
  const auto store = connect_etcd(options);
  EXPECT_EQ(failure_of([&] { store->get("a"); }), StoreFailure::unreachable);
  make_certificate(cluster.directory(), "d2", 30);
  EXPECT_FALSE(insist([&] { return store->get("a"); }).found);
}

TEST(FleetEtcd, WhoIsRevokedComesInNoMore) {
  const Cluster cluster({.members = 1, .tls = true, .revocation = true});
  EtcdOptions options = cluster.options("d1");
  options.timeout = pace::paced(milliseconds(1000));
  write(*connect_etcd(options), "a", "1");
  revoke_certificate(cluster.directory(), "d1");
  EXPECT_EQ(failure_of([&] { connect_etcd(options)->get("a"); }), StoreFailure::unreachable);
  EXPECT_EQ(insist([&] { return cluster.connect("d2")->get("a"); }).found->value, "1");
}

TEST(FleetEtcd, AFullStoreIsReadAndSaysSo) {
  const Cluster cluster({.members = 1, .quota_bytes = "2097152"});
  const auto store = cluster.connect();
  write(*store, "a", "1");
  auto watch = store->watch("a", store->get("a").header.revision);
  // A member that has no room, or is put in order, may end its watches. Whoever watches makes another.
  const auto news = [&](milliseconds longest) {
    try {
      return watch->wait(longest);
    } catch (const StoreError&) {
      const auto now = store->get("a");
      watch = store->watch("a", now.header.revision);
      return now.found->value == "1" ? watch->wait(longest) : WatchNews::changed;
    }
  };
  const std::string much(512 * 1024, 'x');
  const auto fill = [&] {
    for (int i = 0; i < 100; i++) store->change({{}, {{"b", much}}});
  };
  EXPECT_EQ(failure_of(fill), StoreFailure::refused);
  // The alarm stays until somebody made room, and all can be read meanwhile.
  EXPECT_EQ(failure_of([&] { store->change({{}, {{"a", "2"}}}); }), StoreFailure::refused);
  EXPECT_EQ(store->get("a").found->value, "1");
  EXPECT_EQ(news(milliseconds(50)), WatchNews::quiet);
  cluster.control({"compact", std::to_string(store->get("a").header.revision)});
  cluster.control({"defrag"});
  cluster.control({"alarm", "disarm"});
  write(*store, "a", "2");
  EXPECT_EQ(news(patience()), WatchNews::changed);
}

}  // namespace
}  // namespace fleet_test
