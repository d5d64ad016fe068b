// simcards_cost: the CPU time that the library takes, so that a benchmark can take it off what a recorder seems to
// cost. Cards of hardware make audio at no cost of the machine's, and their library does little more than hand out
// events. Threads: any; no lock.
#pragma once

#include <ctime>

namespace simcards {

long long ThreadCpuNs();  // of the calling thread

// The pacing thread has worked so long.
void AddPacingNs(long long iNs);

// Stands at the top of SsmWaitForEventA. The CPU clock costs as much as the call, so only one call in some hundred is
// measured, and stands for all.
class TakingCost {
 public:
  TakingCost();
  ~TakingCost();
  TakingCost(const TakingCost&) = delete;
  TakingCost& operator=(const TakingCost&) = delete;

 private:
  bool fMeasured;
  long long iClockNs = 0;  // what reading the clock costs
  long long iStartNs = 0;
};

}  // namespace simcards
