// What is asked goes to one of the members; what they answer is remembered, to lie with.
#include "tests/fleet/faults/lying_store.h"

#include <etcd.grpc.pb.h>
#include <grpcpp/grpcpp.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

#include "fleet/base/backoff.h"
#include "fleet/base/files.h"

namespace fleet_test {

namespace {

namespace pb = etcdserverpb;

constexpr size_t most_remembered = 200;  // values
constexpr size_t most_pem = 65536;
constexpr auto patience = std::chrono::milliseconds(1000);

// Makes something else of a value.
class Liar {
 public:
  explicit Liar(uint64_t seed) : random_(seed) {}

  void tell(Lie lie) { lie_ = lie; }
  uint64_t lies() const { return lies_; }

  // Is it to be told at all?
  bool alter(pb::KeyValue& item) {
    const std::lock_guard lock(mutex_);
    const std::string truth = item.value();
    const bool is_told = lie_ == Lie::none || random_.below(2) == 0 || make(item);
    if (!is_told || item.value() != truth) lies_++;
    seen_.emplace_back(item.key(), truth);
    if (seen_.size() > most_remembered) seen_.pop_front();
    return is_told;
  }

 private:
  bool make(pb::KeyValue& item) {
    const bool same_key = lie_ == Lie::old;
    std::vector<std::string> others;
    for (const auto& [key, value] : seen_) {
      if ((key == item.key()) == same_key) others.push_back(value);
    }
    if (lie_ == Lie::withheld) return false;
    if (lie_ == Lie::changed && !item.value().empty()) {
      char& byte = (*item.mutable_value())[random_.below(item.value().size())];
      byte = static_cast<char>(byte ^ (1 << random_.below(8)));
    }
    if (lie_ != Lie::changed && !others.empty()) {
      item.set_value(others[random_.below(others.size())]);
    }
    return true;
  }

  std::mutex mutex_;
  qim::fleet::Random random_;
  std::atomic<Lie> lie_{Lie::none};
  std::atomic<uint64_t> lies_{0};
  std::deque<std::pair<std::string, std::string>> seen_;
};

using Channels = std::vector<std::shared_ptr<grpc::Channel>>;

Channels channels_to(const qim::fleet::EtcdOptions& members) {
  using qim::fleet::read_file;
  grpc::SslCredentialsOptions files;
  files.pem_root_certs = read_file(members.ca, most_pem);
  files.pem_cert_chain = read_file(members.certificate, most_pem);
  files.pem_private_key = read_file(members.key, most_pem);
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_INITIAL_RECONNECT_BACKOFF_MS, 50);
  arguments.SetInt(GRPC_ARG_MIN_RECONNECT_BACKOFF_MS, 500);
  arguments.SetInt(GRPC_ARG_MAX_RECONNECT_BACKOFF_MS, 500);
  Channels channels;
  for (const std::string& endpoint : members.endpoints) {
    channels.push_back(grpc::CreateCustomChannel(endpoint, grpc::SslCredentials(files), arguments));
  }
  return channels;
}

class Values : public pb::KV::Service {
 public:
  Values(const Channels& channels, Liar& liar) : channels_(channels), liar_(liar) {}

  grpc::Status Range(grpc::ServerContext* asked, const pb::RangeRequest* request,
                     pb::RangeResponse* response) override {
    const grpc::Status status = ask(*asked, [&](pb::KV::Stub& member, grpc::ClientContext& call) {
      return member.Range(&call, *request, response);
    });
    auto* items = response->mutable_kvs();
    for (int n = items->size(); n-- > 0;) {
      if (!liar_.alter(*items->Mutable(n))) items->DeleteSubrange(n, 1);
    }
    return status;
  }
  grpc::Status Txn(grpc::ServerContext* asked, const pb::TxnRequest* request,
                   pb::TxnResponse* response) override {
    return ask(*asked, [&](pb::KV::Stub& member, grpc::ClientContext& call) {
      return member.Txn(&call, *request, response);
    });
  }

 private:
  template <typename Call>
  grpc::Status ask(const grpc::ServerContext& asked, Call call) {
    grpc::Status status(grpc::StatusCode::UNAVAILABLE, "there are no members");
    for (const auto& channel : channels_) {
      const auto context = grpc::ClientContext::FromServerContext(asked);
      context->set_deadline(std::chrono::system_clock::now() + patience);
      context->AddMetadata("hasleader", "true");
      status = call(*pb::KV::NewStub(channel), *context);
      if (status.ok()) break;
    }
    return status;
  }

  const Channels& channels_;
  Liar& liar_;
};

class Watches : public pb::Watch::Service {
 public:
  Watches(const Channels& channels, Liar& liar) : channels_(channels), liar_(liar) {}

  grpc::Status Watch(
      grpc::ServerContext* asked,
      grpc::ServerReaderWriter<pb::WatchResponse, pb::WatchRequest>* caller) override {
    pb::WatchRequest request;
    if (!caller->Read(&request)) return grpc::Status::OK;
    const auto& channel = channels_[next_++ % channels_.size()];
    const auto context = grpc::ClientContext::FromServerContext(*asked);
    context->AddMetadata("hasleader", "true");
    const auto member = pb::Watch::NewStub(channel)->Watch(context.get());
    member->Write(request);
    pb::WatchResponse news;
    while (member->Read(&news)) {
      auto* events = news.mutable_events();
      for (int n = events->size(); n-- > 0;) {
        if (!liar_.alter(*events->Mutable(n)->mutable_kv())) events->DeleteSubrange(n, 1);
      }
      if (!caller->Write(news)) context->TryCancel();
    }
    return member->Finish();
  }

 private:
  const Channels& channels_;
  Liar& liar_;
  std::atomic<size_t> next_{0};
};

}  // namespace

struct LyingStore::Parts {
  Parts(const qim::fleet::EtcdOptions& members, uint64_t seed)
      : liar(seed), channels(channels_to(members)) {}

  Liar liar;
  Channels channels;
  Values values{channels, liar};
  Watches watches{channels, liar};
  int port = 0;
  std::unique_ptr<grpc::Server> server;
};

LyingStore::LyingStore(const qim::fleet::EtcdOptions& members, uint64_t seed)
    : parts_(std::make_unique<Parts>(members, seed)) {
  grpc::ServerBuilder builder;
  builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &parts_->port);
  builder.RegisterService(&parts_->values);
  builder.RegisterService(&parts_->watches);
  parts_->server = builder.BuildAndStart();
  if (parts_->server == nullptr) throw std::runtime_error("cannot listen");
}

LyingStore::~LyingStore() {
  parts_->server->Shutdown(std::chrono::system_clock::now());
}

std::string LyingStore::endpoint() const {
  return "127.0.0.1:" + std::to_string(parts_->port);
}

void LyingStore::tell(Lie lie) {
  parts_->liar.tell(lie);
}

uint64_t LyingStore::lies() const {
  return parts_->liar.lies();
}

}  // namespace fleet_test
