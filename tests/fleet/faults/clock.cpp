// Loaded before a program's own libraries: the time of day that it is told is off by as many seconds as
// the eight bytes of the file QIM_TEST_CLOCK say, which a test changes while the program runs.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

int64_t seconds_off() {
  static const volatile int64_t* const file = [] {
    const char* name = getenv("QIM_TEST_CLOCK");
    const int descriptor = name == nullptr ? -1 : open(name, O_RDONLY | O_CLOEXEC);
    void* bytes = mmap(nullptr, sizeof(int64_t), PROT_READ, MAP_SHARED, descriptor, 0);
    if (descriptor >= 0) close(descriptor);
    return static_cast<const volatile int64_t*>(bytes == MAP_FAILED ? nullptr : bytes);
  }();
  return file == nullptr ? 0 : *file;
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  using Real = int (*)(clockid_t, timespec*);
  static const auto real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int status = real(clock, time);
  if (status == 0 && clock == CLOCK_REALTIME) time->tv_sec += static_cast<time_t>(seconds_off());
  return status;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept {
  timespec now{};
  const int status = clock_gettime(CLOCK_REALTIME, &now);
  time->tv_sec = now.tv_sec;
  time->tv_usec = static_cast<suseconds_t>(now.tv_nsec / 1000);
  return status;
}

time_t time(time_t* where) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (where != nullptr) *where = now.tv_sec;
  return now.tv_sec;
}
}
