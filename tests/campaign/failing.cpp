// failing: preloaded into the daemon by test_allocations.py and test_syscalls.py.
// The n-th allocation of some threads gives no memory, once. Which and when stands in the file /tmp/failing, which test
// and daemon have mapped; without that file, as in the daemon's children, nothing fails.
// And the half seconds in which a start waits for real cards to come up pass in a fiftieth of the time.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
}

namespace {

constexpr const char* ORDER_FILE = "/tmp/failing";
constexpr int THREADS = 3;
constexpr useconds_t HALF_SECOND_US = 500'000;
constexpr useconds_t SHORT_US = 10'000;

struct Order {
  std::atomic<std::int64_t> iPid;  // 0: nothing fails
  std::int64_t iThread[THREADS];
  std::int64_t iFailAt;              // counted from 1; 0: only count
  std::atomic<std::int64_t> iCount;  // of allocations so far
  std::atomic<std::int64_t> iMet;    // 1: one was refused
};

Order* prOrder = nullptr;

__attribute__((constructor)) void Map() {
  const int hFile = open(ORDER_FILE, O_RDWR | O_CLOEXEC);
  if (hFile < 0) return;
  void* pPlace = mmap(nullptr, sizeof(Order), PROT_READ | PROT_WRITE, MAP_SHARED, hFile, 0);
  (void)close(hFile);
  if (pPlace != MAP_FAILED) prOrder = static_cast<Order*>(pPlace);
}

bool IsRefused() {
  if (prOrder == nullptr || prOrder->iPid == 0 || prOrder->iPid != getpid()) return false;
  const pid_t iThread = gettid();
  bool isMeant = false;
  for (const std::int64_t iMeant : prOrder->iThread) isMeant = isMeant || iMeant == iThread;
  if (!isMeant || ++prOrder->iCount != prOrder->iFailAt) return false;
  prOrder->iMet = 1;
  errno = ENOMEM;
  return true;
}

}  // namespace

extern "C" {

void* malloc(std::size_t uiBytes) {
  return IsRefused() ? nullptr : __libc_malloc(uiBytes);
}

void* calloc(std::size_t uiCount, std::size_t uiBytes) {
  return IsRefused() ? nullptr : __libc_calloc(uiCount, uiBytes);
}

void* realloc(void* pOld, std::size_t uiBytes) {
  return IsRefused() ? nullptr : __libc_realloc(pOld, uiBytes);
}

int usleep(useconds_t uiMicroseconds) {
  static auto* const prReal = reinterpret_cast<int (*)(useconds_t)>(dlsym(RTLD_NEXT, "usleep"));
  return prReal(uiMicroseconds == HALF_SECOND_US ? SHORT_US : uiMicroseconds);
}
}
