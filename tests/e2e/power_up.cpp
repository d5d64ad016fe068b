// power_up: preloaded into the daemon of an end-to-end test, it takes the ten seconds from the start that the daemon
// gives its cards to power up. Simulated ones need none, and some fifty daemons start in these tests. test_process.py
// starts them without this.
// The library takes itself out of LD_PRELOAD, so that the daemon's children are as they always are.
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <ctime>

namespace {

// The wait is made of the first pauses of half a second that the process makes.
constexpr useconds_t PAUSE_US = 500'000;
std::atomic<int> iPausesLeft{20};

__attribute__((constructor)) void Attach() {
  (void)unsetenv("LD_PRELOAD");
}

}  // namespace

extern "C" int usleep(useconds_t iMicroseconds) {
  if (iMicroseconds == PAUSE_US && iPausesLeft-- > 0) return 0;
  const timespec rPause = {static_cast<time_t>(iMicroseconds / 1'000'000),
                           static_cast<long>(iMicroseconds % 1'000'000) * 1000};
  return nanosleep(&rPause, nullptr);
}
