// How quickly packets are decided about: what the tool does with a packet and with a capture, without the
// start of a process.
//
//   bench_trace DB INTERFACE CAPTURE
//
// Reads the access lists of DB, asks those at INTERFACE on the way in about the first packet of
// CAPTURE, and then about all of them, by the classifier and entry by entry. Prints "read S, first S,
// classifier N, linear N": seconds of processor time for the lists and for the first packet, packets a
// second.
#include <sys/resource.h>

#include <cstdio>
#include <exception>
#include <vector>

#include "policy/base/input_file.h"
#include "policy/store/database.h"
#include "policy/store/stored_model.h"
#include "policy/trace/capture.h"
#include "policy/trace/classifier.h"
#include "policy/trace/packet_bytes.h"

namespace {

using qimctl::CapturedFrame;

double processor_seconds() {
  struct rusage use;
  getrusage(RUSAGE_SELF, &use);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(use.ru_utime) + seconds(use.ru_stime);
}

// Packets a second; each is taken apart first, as the tool does.
template <typename Ask>
double speed(const std::vector<CapturedFrame>& frames, size_t count, Ask ask) {
  size_t decided = 0;
  const double before = processor_seconds();
  for (size_t i = 0; i < count; i++) {
    const CapturedFrame& frame = frames[i];
    decided += ask(qimctl::packet_from_bytes(frame.bytes, frame.kind, frame.is_cut));
  }
  const double seconds = processor_seconds() - before;
  return decided == 0 ? 0 : static_cast<double>(count) / seconds;
}

void measure(const char* directory, const char* interface, const char* capture) {
  const qimctl::Database database(directory, qimctl::OpenMode::read);
  const qimctl::ReadSession session(database);
  const qimctl::Source source = qimctl::read_source(capture);
  std::vector<CapturedFrame> frames;
  qimctl::read_capture({reinterpret_cast<const uint8_t*>(source.text.data()), source.text.size()},
                       capture, [&frames](const CapturedFrame& frame) { frames.push_back(frame); });
  const double began = processor_seconds();
  const qimctl::StoredModel stored = qimctl::read_stored_model(session);
  const double read = processor_seconds();
  const qimctl::Lists lists = qimctl::lists_at(stored.model, interface, QIM_DIR_IN);
  const CapturedFrame& frame = frames.at(0);
  const size_t outcomes =
      qimctl::trace_once(lists, qimctl::packet_from_bytes(frame.bytes, frame.kind, frame.is_cut))
          .outcomes.size();
  const double first = processor_seconds();
  const qimctl::Tracer tracer(lists);
  const qimctl::Classifier classifier(tracer);
  const double by_classifier = speed(frames, frames.size(), [&](const qimctl::Packet& packet) {
    return classifier.trace(packet).outcomes.size();
  });
  const double linear = speed(frames, frames.size() / 20, [&](const qimctl::Packet& packet) {
    return tracer.trace(packet, false).outcomes.size();
  });
  printf("read %.4f, first %.4f, classifier %.0f, linear %.0f\n", read - began,
         outcomes == 0 ? 0 : first - read, by_classifier, linear);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fprintf(stderr, "usage: bench_trace DB INTERFACE CAPTURE\n");
    return 2;
  }
  try {
    measure(argv[1], argv[2], argv[3]);
    return 0;
  } catch (const std::exception& error) {
    fprintf(stderr, "bench_trace: %s\n", error.what());
    return 1;
  }
}
