#include "simcards_cost.h"

#include <atomic>

#include "simcards.h"

namespace simcards {
namespace {

constexpr long long ONE_IN = 251;  // a prime, so that no rhythm of the lines is always met or always missed

std::atomic<long long> iPacingNs{0};
std::atomic<long long> iTakes{0};
std::atomic<long long> iMeasured{0};
std::atomic<long long> iMeasuredNs{0};

}  // namespace

long long ThreadCpuNs() {
  timespec rNow{};
  (void)clock_gettime(CLOCK_THREAD_CPUTIME_ID, &rNow);
  return rNow.tv_sec * 1000000000LL + rNow.tv_nsec;
}

void AddPacingNs(long long iNs) {
  iPacingNs += iNs;
}

TakingCost::TakingCost() : fMeasured(iTakes.fetch_add(1, std::memory_order_relaxed) % ONE_IN == 0) {
  if (!fMeasured) return;
  (void)ThreadCpuNs();  // the first reading is slower than those behind it
  const long long iBeforeNs = ThreadCpuNs();
  iStartNs = ThreadCpuNs();
  iClockNs = iStartNs - iBeforeNs;
}

TakingCost::~TakingCost() {
  if (!fMeasured) return;
  iMeasuredNs += ThreadCpuNs() - iStartNs - iClockNs;
  iMeasured++;
}

Cost TheCost() {
  Cost rCost;
  rCost.dPacingS = static_cast<double>(iPacingNs) * 1e-9;
  rCost.iTakes = iTakes;
  const long long iOf = iMeasured;
  if (iOf > 0) {
    rCost.dTakingS =
        static_cast<double>(iMeasuredNs) / static_cast<double>(iOf) * static_cast<double>(rCost.iTakes) * 1e-9;
  }
  return rCost;
}

}  // namespace simcards
