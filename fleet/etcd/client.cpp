// The client that speaks to etcd; the only source that sees gRPC.
//
// It keeps one connection, to one endpoint. When that one fails, calls that only read go on with the
// next at once; a change is sent once, on a connection that is known to be up, and whoever sent it is
// told when its fate is not known.
#include "fleet/etcd/client.h"

#include <etcd.grpc.pb.h>
#include <grpc/support/log.h>
#include <grpc/support/time.h>
#include <grpcpp/alarm.h>
#include <grpcpp/grpcpp.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <utility>

#include "fleet/base/backoff.h"
#include "fleet/base/files.h"
#include "policy/base/text.h"

namespace qim::fleet {

namespace {

namespace pb = etcdserverpb;
using std::chrono::milliseconds;
using Steady = std::chrono::steady_clock;
using Deadline = Steady::time_point;

constexpr size_t most_pem = 1024 * 1024;
// etcd closes connections whose clients ask more often than every 5 s whether it is still there.
constexpr int keepalive_ms = 6000;
constexpr int keepalive_answer_ms = 3000;
// Where a thousand come at once, each connection takes longer than any of them waits for one alone; given
// up and begun anew, they keep the members busy with what nobody waits for any more. So a call that came
// to no end in time leaves the next one twice as long, up to so many times what is set.
constexpr int most_patience = 4;
constexpr milliseconds connecting_piece{250};

// As gRPC takes it. Nobody sets this clock; the time of day may jump while something is waited for.
gpr_timespec by(Deadline deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - Steady::now());
  return gpr_time_add(gpr_now(GPR_CLOCK_MONOTONIC),
                      gpr_time_from_millis(left.count(), GPR_TIMESPAN));
}

bool says(const grpc::Status& status, const char* text) {
  return status.error_message().find(text) != std::string::npos;
}

// A user's token is forgotten some minutes after its last use, and when the members start anew.
bool is_stale_token(const grpc::Status& status) {
  return says(status, "invalid auth token");
}

StoreFailure failure_of(const grpc::Status& status) {
  // What a proxy hands on has lost its code.
  if (says(status, "permission denied")) return StoreFailure::denied;
  switch (status.error_code()) {
    case grpc::StatusCode::PERMISSION_DENIED:
    case grpc::StatusCode::UNAUTHENTICATED:
      return StoreFailure::denied;
    case grpc::StatusCode::OUT_OF_RANGE:
      return StoreFailure::compacted;
    case grpc::StatusCode::RESOURCE_EXHAUSTED:
    case grpc::StatusCode::INVALID_ARGUMENT:
    case grpc::StatusCode::FAILED_PRECONDITION:
    case grpc::StatusCode::NOT_FOUND:
    case grpc::StatusCode::UNIMPLEMENTED:
      return StoreFailure::refused;
    default:
      return StoreFailure::unreachable;
  }
}

std::string reason_of(const grpc::Status& status) {
  const std::string text = qimctl::printable(status.error_message());
  return text.empty() ? "code " + std::to_string(status.error_code()) : text;
}

const char* advice_for(StoreFailure failure) {
  switch (failure) {
    case StoreFailure::denied:
      return "; the certificate's user needs a role for it";
    case StoreFailure::refused:
      return "; see what the store's own log says";
    case StoreFailure::compacted:
      return "; it is read anew";
    default:
      return "; see whether a majority of its members runs, and whether certificates are right";
  }
}

StoreHeader header_of(const pb::ResponseHeader& header) {
  return {header.cluster_id(), header.revision()};
}

KeyValue item_of(const pb::KeyValue& item) {
  return {item.key(), item.value(), item.mod_revision(), item.create_revision()};
}

// The end of the range of all keys that begin with a prefix, which ends with no byte 255.
std::string behind(std::string prefix) {
  if (prefix.empty()) return std::string(1, '\0');
  prefix.back() = static_cast<char>(static_cast<unsigned char>(prefix.back()) + 1);
  return prefix;
}

void prepare(grpc::ClientContext& context, const std::string& token) {
  if (!token.empty()) context.AddMetadata("token", token);
  // A member that lost its leader refuses at once, where it would be silent otherwise.
  context.AddMetadata("hasleader", "true");
}

// The three files, and when they were changed, so that new ones are noticed.
class Credentials {
 public:
  explicit Credentials(const EtcdOptions& options)
      : files_{options.ca, options.certificate, options.key} {}

  std::shared_ptr<grpc::ChannelCredentials> make() {
    stamp_ = stamp();
    if (files_[0].empty()) return grpc::InsecureChannelCredentials();
    grpc::SslCredentialsOptions options;
    options.pem_root_certs = read_file(files_[0], most_pem);
    if (!files_[1].empty()) {
      options.pem_cert_chain = read_file(files_[1], most_pem);
      options.pem_private_key = read_secret_file(files_[2], most_pem);
    }
    return grpc::SslCredentials(options);
  }

  bool changed() const { return stamp() != stamp_; }

 private:
  std::string stamp() const {
    std::string text;
    for (const std::string& file : files_) {
      struct stat status {};
      if (file.empty() || stat(file.c_str(), &status) != 0) continue;
      text += std::to_string(status.st_ino) + "." + std::to_string(status.st_mtim.tv_sec) + "." +
              std::to_string(status.st_mtim.tv_nsec) + "." + std::to_string(status.st_size) + " ";
    }
    return text;
  }

  std::string files_[3];
  std::string stamp_;
};

std::shared_ptr<grpc::Channel> open_channel(const std::string& endpoint,
                                            const std::shared_ptr<grpc::ChannelCredentials>& who,
                                            const EtcdOptions& options) {
  grpc::ChannelArguments arguments;
  arguments.SetMaxReceiveMessageSize(static_cast<int>(options.most_message));
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, keepalive_ms);
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, keepalive_answer_ms);
  // A new connection is a new try, which does not wait for what an earlier one has failed with.
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  arguments.SetInt(GRPC_ARG_ENABLE_RETRIES, 0);
  return grpc::CreateCustomChannel(endpoint, who, arguments);
}

class EtcdWatch : public Watch {
 public:
  EtcdWatch(std::shared_ptr<grpc::Channel> channel, const std::string& endpoint,
            const std::string& key, int64_t after, milliseconds timeout, const std::string& token)
      : channel_(std::move(channel)),
        stub_(pb::Watch::NewStub(channel_)),
        endpoint_(endpoint),
        due_(Steady::now() + timeout) {
    pb::WatchCreateRequest* create = request_.mutable_create_request();
    create->set_key(key);
    create->set_start_revision(after + 1);
    prepare(context_, token);
    stream_ = stub_->PrepareAsyncWatch(&context_, &queue_);
    stream_->StartCall(tag(starting));
  }

  ~EtcdWatch() override {
    context_.TryCancel();
    queue_.Shutdown();
    void* ignored = nullptr;
    bool ok = false;
    while (queue_.Next(&ignored, &ok)) continue;
  }

  WatchNews wait(milliseconds longest) override {
    const Deadline deadline = Steady::now() + longest;
    for (;;) {
      if (interrupted_) return WatchNews::quiet;
      void* step = nullptr;
      bool ok = false;
      const Deadline until = created_ ? deadline : std::min(deadline, due_);
      const auto got = queue_.AsyncNext(&step, &ok, by(until));
      if (got == grpc::CompletionQueue::TIMEOUT) {
        if (!created_ && until == due_) fail(StoreFailure::unreachable, "it does not answer");
        return WatchNews::quiet;
      }
      if (go_on(step, ok)) return WatchNews::changed;
    }
  }

  std::optional<GetAnswer> told() override { return std::exchange(told_, std::nullopt); }

  void interrupt() override {
    interrupted_ = true;
    context_.TryCancel();
  }

 private:
  enum Step : char { starting, writing, reading, finishing };

  void* tag(Step step) { return &steps_[step]; }

  [[noreturn]] void fail(StoreFailure failure, const std::string& why) const {
    throw StoreError(failure, "the watch at " + qimctl::printable(endpoint_) + " ended: " + why +
                                  advice_for(failure));
  }

  // Does what follows a step that is done. Was there news?
  bool go_on(void* step, bool ok) {
    if (step == tag(finishing)) {
      finished_ = true;
      if (!interrupted_) fail(failure_of(status_), reason_of(status_));
      return false;
    }
    if (!ok) {
      stream_->Finish(&status_, tag(finishing));
      return false;
    }
    if (step == tag(starting)) {
      stream_->Write(request_, tag(writing));
      return false;
    }
    if (step == tag(reading)) {
      if (response_.canceled()) {
        const bool compacted = response_.compact_revision() != 0;
        fail(compacted ? StoreFailure::compacted : StoreFailure::denied,
             qimctl::printable(response_.cancel_reason()));
      }
      created_ = created_ || response_.created();
    }
    const bool news = step == tag(reading) && response_.events_size() != 0;
    if (news) remember_told();
    stream_->Read(&response_, tag(reading));
    return news;
  }

  // Somebody between may leave out whose cluster it is, without which an answer is none.
  void remember_told() {
    const pb::Event& last = response_.events(response_.events_size() - 1);
    told_.reset();
    if (last.type() != pb::Event::PUT || response_.header().cluster_id() == 0) return;
    told_ = GetAnswer{header_of(response_.header()), item_of(last.kv())};
  }

  std::shared_ptr<grpc::Channel> channel_;
  std::unique_ptr<pb::Watch::Stub> stub_;
  std::string endpoint_;
  Deadline due_;  // until when the watch must be there
  grpc::ClientContext context_;
  grpc::CompletionQueue queue_;
  std::unique_ptr<grpc::ClientAsyncReaderWriter<pb::WatchRequest, pb::WatchResponse>> stream_;
  pb::WatchRequest request_;
  pb::WatchResponse response_;
  grpc::Status status_;
  std::optional<GetAnswer> told_;
  bool created_ = false;
  bool finished_ = false;
  std::atomic<bool> interrupted_{false};
  char steps_[4] = {};
};

// The call that is under way, which another thread may end.
class UnderWay {
 public:
  void begin(grpc::ClientContext* call) {
    const std::lock_guard lock(mutex_);
    call_ = call;
    if (over_ && call_ != nullptr) call_->TryCancel();
  }
  void give_up() {
    const std::lock_guard lock(mutex_);
    over_ = true;
    if (call_ != nullptr) call_->TryCancel();
  }
  bool is_over() const { return over_; }

 private:
  std::mutex mutex_;  // of the call, which must not go away while it is ended
  grpc::ClientContext* call_ = nullptr;
  std::atomic<bool> over_{false};
};

class EtcdClient : public Store {
 public:
  explicit EtcdClient(const EtcdOptions& options)
      : options_(options), credentials_(options), patience_(options.timeout), current_(0) {
    // All is told by exceptions; a library does not write to its program's terminal.
    gpr_set_log_function([](gpr_log_func_args*) {});
    Random random(random_seed());
    for (size_t i = options_.endpoints.size(); i > 1; i--)
      std::swap(options_.endpoints[i - 1],
                options_.endpoints[static_cast<size_t>(random.below(i))]);
    connect();
  }

  GetAnswer get(const std::string& key) override {
    pb::RangeRequest request;
    request.set_key(key);
    const pb::RangeResponse response = range(request, "read " + qimctl::quoted(key));
    GetAnswer answer{header_of(response.header()), {}};
    if (response.kvs_size() != 0) answer.found = item_of(response.kvs(0));
    return answer;
  }

  ListAnswer list(const ListQuestion& question) override {
    pb::RangeRequest request;
    // The least key that can be; there is no empty one.
    const std::string& first = question.after.empty() ? question.prefix : question.after;
    request.set_key(question.after.empty() && !first.empty() ? first : first + '\0');
    request.set_range_end(behind(question.prefix));
    request.set_limit(question.limit);
    request.set_keys_only(question.keys_only);
    const pb::RangeResponse response =
        range(request, "list what begins with " + qimctl::quoted(question.prefix));
    ListAnswer answer{header_of(response.header()), {}, response.more()};
    for (const pb::KeyValue& item : response.kvs()) answer.found.push_back(item_of(item));
    return answer;
  }

  ChangeAnswer change(const Change& change) override {
    pb::TxnRequest request;
    for (const Condition& condition : change.conditions) {
      pb::Compare* compare = request.add_compare();
      compare->set_target(pb::Compare::MOD);
      compare->set_key(condition.key);
      compare->set_mod_revision(condition.modified);
    }
    for (const Write& write : change.writes) {
      pb::PutRequest* put = request.add_success()->mutable_request_put();
      put->set_key(write.key);
      put->set_value(write.value);
    }
    for (const std::string& key : change.erased)
      request.add_success()->mutable_request_delete_range()->set_key(key);
    const std::string attempt =
        change.writes.empty() ? "ask" : "write " + qimctl::quoted(change.writes.back().key);
    await_connection(attempt);
    pb::TxnResponse response;
    const grpc::Status status = signed_in(
        [&](grpc::ClientContext* context) { return kv_->Txn(context, request, &response); });
    if (status.ok()) return {header_of(response.header()), response.succeeded()};
    StoreFailure failure = failure_of(status);
    if (failure == StoreFailure::unreachable) failure = StoreFailure::unknown;
    const std::string where = endpoint();
    turn();
    fail(failure, attempt, where, status);
  }

  std::unique_ptr<Watch> watch(const std::string& key, int64_t after) override {
    await_connection("watch " + qimctl::quoted(key));
    sign_in();
    return std::make_unique<EtcdWatch>(channel_, endpoint(), key, after, options_.timeout, token_);
  }

  void give_up() override { under_way_.give_up(); }

 private:
  const std::string& endpoint() const { return options_.endpoints[current_]; }

  void connect() {
    channel_ = open_channel(endpoint(), credentials_.make(), options_);
    kv_ = pb::KV::NewStub(channel_);
  }

  void wait_longer() { patience_ = std::min(patience_ * 2, options_.timeout * most_patience); }

  // To the next endpoint.
  void turn() {
    current_ = (current_ + 1) % options_.endpoints.size();
    connect();
  }

  template <typename Call>
  grpc::Status perform(Call call) {
    grpc::ClientContext context;
    context.set_deadline(by(Steady::now() + patience_));
    prepare(context, token_);
    under_way_.begin(&context);
    const grpc::Status status = call(&context);
    under_way_.begin(nullptr);
    return status;
  }

  // Says who this is, where a certificate does not.
  void sign_in() {
    if (options_.user.empty() || !token_.empty()) return;
    pb::AuthenticateRequest request;
    request.set_name(options_.user);
    request.set_password(lines_of(read_secret_file(options_.password, most_pem) + "\n").front());
    pb::AuthenticateResponse response;
    const grpc::Status status = perform([&](grpc::ClientContext* context) {
      return pb::Auth::NewStub(channel_)->Authenticate(context, request, &response);
    });
    if (!status.ok()) {
      const StoreFailure failure = failure_of(status);
      const std::string where = endpoint();
      if (failure == StoreFailure::unreachable) turn();
      fail(failure, "sign in as " + qimctl::quoted(options_.user), where, status);
    }
    token_ = response.token();
  }

  // Calls, with a new token where the old one is not known any more: nothing was done then.
  template <typename Call>
  grpc::Status signed_in(Call call) {
    for (bool again = false;; again = true) {
      sign_in();
      const grpc::Status status = perform(call);
      if (again || !is_stale_token(status)) return status;
      token_.clear();
    }
  }

  [[noreturn]] static void fail(StoreFailure failure, const std::string& attempt,
                                const std::string& where, const grpc::Status& status) {
    throw StoreError(failure, "cannot " + attempt + " at " + qimctl::printable(where) + ": " +
                                  reason_of(status) + advice_for(failure));
  }

  // Certificates that were renewed are used for what comes next.
  void refresh() {
    if (credentials_.changed()) connect();
  }

  // Waits piece by piece, for nothing else ends such a wait before its time.
  bool is_connected_within(milliseconds time) {
    const Deadline end = Steady::now() + time;
    while (!under_way_.is_over()) {
      const Deadline now = Steady::now();
      if (channel_->WaitForConnected(by(std::min(end, now + connecting_piece)))) return true;
      if (now >= end) return false;
    }
    return false;
  }

  // A connection that is up, to whichever endpoint.
  void await_connection(const std::string& attempt) {
    refresh();
    for (size_t i = 0; i < options_.endpoints.size(); i++) {
      if (is_connected_within(patience_ / static_cast<int>(options_.endpoints.size()))) return;
      if (under_way_.is_over()) break;
      if (channel_->GetState(false) == GRPC_CHANNEL_CONNECTING) wait_longer();
      turn();
    }
    fail(StoreFailure::unreachable, attempt, endpoint(),
         {grpc::StatusCode::UNAVAILABLE, "no connection to any endpoint"});
  }

  pb::RangeResponse range(const pb::RangeRequest& request, const std::string& attempt) {
    refresh();
    for (size_t tries = 1;; tries++) {
      pb::RangeResponse response;
      const grpc::Status status = signed_in(
          [&](grpc::ClientContext* context) { return kv_->Range(context, request, &response); });
      if (status.ok()) {
        patience_ = options_.timeout;
        return response;
      }
      if (status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED) wait_longer();
      const StoreFailure failure = failure_of(status);
      const std::string where = endpoint();
      if (failure == StoreFailure::unreachable) turn();
      if (failure != StoreFailure::unreachable || tries >= options_.endpoints.size() ||
          under_way_.is_over())
        fail(failure, attempt, where, status);
    }
  }

  EtcdOptions options_;
  Credentials credentials_;
  UnderWay under_way_;
  milliseconds patience_;  // with a call
  size_t current_;         // endpoint
  std::shared_ptr<grpc::Channel> channel_;
  std::unique_ptr<pb::KV::Stub> kv_;
  std::string token_;  // of the user, "" = none yet
};

}  // namespace

EtcdOptions etcd_options(Settings& settings) {
  EtcdOptions options;
  settings.required("endpoints");
  options.endpoints = settings.words("endpoints");
  options.ca = settings.text("ca");
  options.certificate = settings.text("certificate");
  options.key = settings.text("key");
  options.user = settings.text("user");
  options.password = settings.text("password");
  options.timeout = settings.duration("timeout", options.timeout);
  return options;
}

std::unique_ptr<Store> connect_etcd(const EtcdOptions& options) {
  if (options.endpoints.empty())
    throw ConfigError("there are no endpoints; name at least one, such as 127.0.0.1:2379");
  if (options.certificate.empty() != options.key.empty())
    throw ConfigError("a certificate and its key belong together; name both or none");
  if (options.user.empty() != options.password.empty())
    throw ConfigError("a user and the file with the password belong together; name both or none");
  if (options.ca.empty() && !options.certificate.empty())
    throw ConfigError("a certificate needs the authority's as well; name it as ca");
  return std::make_unique<EtcdClient>(options);
}

}  // namespace qim::fleet
