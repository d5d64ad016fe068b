// simcards_queue: events in the order in which they came, without an allocation for each.
// Threads: none of its own; used under the library's lock.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "shpa3api.h"

namespace simcards {

struct QueuedEvent {
  SSM_EVENT rEvent;
  std::string strData;
  long long iRecorded = 0;  // of E_PROC_RecordMem that the library makes: bytes since the recording started
};

class EventQueue {
 public:
  bool IsEmpty() const { return iCount == 0; }
  std::size_t Size() const { return iCount; }
  QueuedEvent& Front() { return At(0); }
  void Push(QueuedEvent rQueued) {
    if (iCount == vPlaces.size()) Grow();
    At(iCount++) = std::move(rQueued);
  }
  void Pop() {
    iFirst++;
    iCount--;
  }
  template <typename F>
  void RemoveIf(F fnIs) {
    std::size_t iKept = 0;
    for (std::size_t i = 0; i < iCount; i++) {
      if (fnIs(At(i))) continue;
      if (i != iKept) At(iKept) = std::move(At(i));
      iKept++;
    }
    iCount = iKept;
  }
  void Clear() { *this = EventQueue(); }

 private:
  // A ring, its size a power of two.
  QueuedEvent& At(std::size_t i) { return vPlaces[(iFirst + i) & (vPlaces.size() - 1)]; }
  void Grow() {
    std::vector<QueuedEvent> vLarger(std::max<std::size_t>(64, vPlaces.size() * 2));
    for (std::size_t i = 0; i < iCount; i++) vLarger[i] = std::move(At(i));
    vPlaces = std::move(vLarger);
    iFirst = 0;
  }

  std::vector<QueuedEvent> vPlaces;
  std::size_t iFirst = 0;
  std::size_t iCount = 0;
};

}  // namespace simcards
