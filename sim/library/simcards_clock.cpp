// The cards' clock and who is due by it. A line is looked at each 20 ms and when it has something to report, so lines
// that began at different moments report at different moments, and no moment has to do with all of them.
// Where many lines are at work they are looked at less often between reports: each look fetches a ring from far memory.
// The wheel has a slot for each byte of time. A line may stand in slots that it is no longer due in (a recording began
// anew, say): its own iDue decides.

#include <algorithm>
#include <chrono>
#include <limits>

#include "simcards_state.h"

namespace simcards {
namespace {

constexpr int LOOK_BYTES = 160;  // 20 ms at ordinary speed
constexpr int MANY_LINES = 1000;
constexpr int LOOK_BYTES_OF_MANY = 512;
static_assert(LOOK_BYTES_OF_MANY < CLOCK_SLOTS, "what is due stands at most once round the wheel");

// So few begin with the last look that the pacing thread took at any line: the sides of a pair are in step then. Where
// there are more, each begins at its own moment, or whole groups would report at once for as long as they last.
constexpr int LINES_IN_STEP = 100;
static_assert(LOOK_BYTES + LOOK_BYTES_OF_MANY < CLOCK_SLOTS, "nor does a recording that begins now");

bool HasWork(const Channel& rChannel) {
  return rChannel.rMem.fOn || rChannel.rFile.IsOpen() || rChannel.rSource.Playing();
}

}  // namespace

void State::Schedule(int nCh, Channel& rChannel) {
  if (!HasWork(rChannel)) {
    if (rChannel.iDue >= 0) iBusyLines--;
    rChannel.iDue = -1;
    return;
  }
  if (rChannel.iDue < 0) iBusyLines++;
  long long iAhead = iBusyLines > MANY_LINES ? LOOK_BYTES_OF_MANY : LOOK_BYTES;
  if (rChannel.rMem.fOn) iAhead = std::min(iAhead, NextReport(nCh, rChannel.rMem) - rChannel.rMem.iWritten);
  rChannel.iDue = rChannel.iClock + iAhead;
  SlotOf(rChannel.iDue).push_back(nCh);
}

void State::Begin(int nCh, Channel& rChannel) {
  if (iBusyLines >= LINES_IN_STEP && !rChannel.rFile.IsOpen()) {
    const auto rSinceBoot = std::chrono::steady_clock::now().time_since_epoch();
    const long long iNow = rTime.MomentOf(std::chrono::nanoseconds(rSinceBoot).count());
    const long long iBegin = std::clamp(iNow, iClock, iClock + LOOK_BYTES);
    if (iBegin > rChannel.iClock) {
      rChannel.rSource.Skip(iBegin - rChannel.iClock);
      rChannel.iClock = iBegin;
    }
  }
  Schedule(nCh, rChannel);
}

bool State::RunClock(long long iUntil, int iMost) {
  while (true) {
    std::vector<int>& vSlot = SlotOf(iClock);
    if (iInSlot == 0) std::sort(vSlot.begin(), vSlot.end());  // what is due at once comes by channel
    for (; iInSlot < vSlot.size(); iInSlot++, iMost--) {
      if (iMost <= 0) return false;
      const int nCh = vSlot[iInSlot];
      Channel& rChannel = *At(nCh);
      if (rChannel.iDue != iClock) continue;
      CatchUp(nCh, rChannel);
      Schedule(nCh, rChannel);
    }
    vSlot.clear();
    iInSlot = 0;
    if (iClock >= iUntil) return true;
    iClock++;
  }
}

int State::NextLook() {
  int iAhead = 1;
  while (iAhead < LOOK_BYTES && SlotOf(iClock + iAhead).empty()) iAhead++;
  return iAhead;
}

void State::Advance(int iBytes) {
  (void)RunClock(iClock + iBytes, std::numeric_limits<int>::max());
  for (std::size_t i = 0; i < vChannels.size(); i++) CatchUp(static_cast<int>(i), *vChannels[i]);
}

}  // namespace simcards
