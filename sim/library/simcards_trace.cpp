// Raw bits are HDLC flags with the frames of D-channel messages between them, 40 bytes each 20 ms as on a 16 kbit/s
// D-channel. Signalling is first the frame as processed data, then the message that the card made of it.

#include "simcards_trace.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <ctime>
#include <deque>
#include <thread>

#include "simcards_thread.h"

namespace simcards {
namespace {

using Clock = std::chrono::steady_clock;

constexpr auto BIT_PERIOD = std::chrono::milliseconds(20);
constexpr std::size_t BIT_BYTES = 40;
constexpr BYTE HDLC_FLAG = 0x7E;

// What the telephone sends; the rest comes from the PBX.
constexpr DWORD UP_MESSAGES[] = {DMSG_OFF_HOOK,       DMSG_ON_HOOK,        DMSG_KEY_DIGIT,   DMSG_FUNCTION_BUTTON,
                                 DMSG_RELEASE_BUTTON, DMSG_FEATURE_BUTTON, DMSG_SOFT_BUTTON, DMSG_LINE_BUTTON};

BYTE CmdTypeOf(DWORD dwCode) {
  if (dwCode == DMSG_AUDIO_CHANGE) return CMD_VOICE;
  return std::count(std::begin(UP_MESSAGES), std::end(UP_MESSAGES), dwCode) > 0 ? CMD_UP : CMD_DOWN;
}

// Code and value of the message, low byte first, then its data.
std::string FrameOf(const QueuedEvent& rQueued) {
  std::string strFrame;
  for (const DWORD dwValue : {rQueued.rEvent.dwParam, rQueued.rEvent.dwSubReason}) {
    strFrame += static_cast<char>(dwValue & 0xFF);
    strFrame += static_cast<char>(dwValue >> 8 & 0xFF);
  }
  return strFrame + rQueued.strData;
}

// A thread that handles messages one by one and may wake up by itself in between.
class Trace {
 public:
  virtual ~Trace() = default;
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  void Start() {
    rThread = StartThread([this] { Run(); });
  }
  void Stop() {
    {
      const std::lock_guard<std::mutex> rGuard(rMutex);
      fStop = true;
    }
    rWake.notify_all();
    rThread.join();
  }
  void Pass(const QueuedEvent& rQueued) {
    {
      const std::lock_guard<std::mutex> rGuard(rMutex);
      rPassed.push_back(rQueued);
    }
    rWake.notify_all();
  }

 protected:
  Trace() = default;
  virtual void Run() = 0;

  std::mutex rMutex;
  std::condition_variable rWake;
  std::deque<QueuedEvent> rPassed;  // guarded by rMutex
  bool fStop = false;               // guarded by rMutex

 private:
  std::thread rThread;
};

class BitTrace : public Trace {
 public:
  BitTrace(int nTracedCh, LPFNDSTRECRAWDATA pfnGiven) : nCh(nTracedCh), pfnBits(pfnGiven) {}

 private:
  void Run() override {
    std::string strBits;  // frames that did not fit the last piece
    std::unique_lock<std::mutex> rLock(rMutex);
    for (Clock::time_point rNext = Clock::now() + BIT_PERIOD;; rNext += BIT_PERIOD) {
      if (rWake.wait_until(rLock, rNext, [this] { return fStop; })) return;
      for (; !rPassed.empty(); rPassed.pop_front()) strBits += FrameOf(rPassed.front()) + static_cast<char>(HDLC_FLAG);
      BYTE acPiece[BIT_BYTES];
      const std::size_t iFrames = std::min(strBits.size(), BIT_BYTES);
      std::fill(std::copy_n(strBits.begin(), iFrames, acPiece), std::end(acPiece), HDLC_FLAG);
      strBits.erase(0, iFrames);
      rLock.unlock();
      (void)pfnBits(nCh, BIT_BYTES, acPiece, 0, 0);
      rLock.lock();
    }
  }

  const int nCh;
  const LPFNDSTRECRAWDATA pfnBits;
};

class SignalTrace : public Trace {
 public:
  SignalTrace(int nTracedCh, DTR_CALLBACK pfnGiven) : nCh(nTracedCh), pfnSignal(pfnGiven) {}

 private:
  void Run() override {
    GiveData(CMD_STATUS, std::string("\1", 1));  // the card tells that it traces
    std::unique_lock<std::mutex> rLock(rMutex);
    while (true) {
      rWake.wait(rLock, [this] { return fStop || !rPassed.empty(); });
      if (fStop) return;
      const QueuedEvent rQueued = std::move(rPassed.front());
      rPassed.pop_front();
      rLock.unlock();
      GiveData(CmdTypeOf(rQueued.rEvent.dwParam), FrameOf(rQueued));
      GiveEvent(rQueued);
      rLock.lock();
    }
  }

  void GiveData(BYTE ucCmd, std::string strFrame) {
    auto* pucData = reinterpret_cast<BYTE*>(strFrame.data());
    Give(PROCESS_DATA, ucCmd, static_cast<WORD>(strFrame.size()), pucData, nullptr);
  }

  void GiveEvent(const QueuedEvent& rQueued) {
    DST_EVENT rEvent;
    rEvent.dwEventCode = rQueued.rEvent.dwParam;
    rEvent.dwSubReason = rQueued.rEvent.dwSubReason;
    rEvent.dwXtraInfo = rQueued.rEvent.dwXtraInfo;
    const std::size_t iLen = std::min(rQueued.strData.size(), sizeof rEvent.pucBuffer - 1);  // readers want a final NUL
    std::copy_n(rQueued.strData.begin(), iLen, rEvent.pucBuffer);
    rEvent.dwDataLength = static_cast<DWORD>(iLen);
    Give(PROCESS_EVENT, 0, 0, nullptr, &rEvent);
  }

  void Give(BYTE ucProcessType, BYTE ucCmd, WORD wLen, BYTE* pucData, DST_EVENT* prEvent) {
    timespec rNow{};
    (void)clock_gettime(CLOCK_REALTIME, &rNow);
    tm rLocal{};
    (void)localtime_r(&rNow.tv_sec, &rLocal);
    char szTime[40];
    (void)std::snprintf(szTime, sizeof szTime, "%02d:%02d:%02d.%03ld", rLocal.tm_hour, rLocal.tm_min, rLocal.tm_sec,
                        rNow.tv_nsec / 1000000);
    (void)pfnSignal(dwGiven++, szTime, nCh, ucProcessType, ucCmd, wLen, pucData, prEvent);
  }

  const int nCh;
  const DTR_CALLBACK pfnSignal;
  DWORD dwGiven = 0;  // only its own thread counts
};

// All running traces of one kind, by driver channel.
class Traces {
 public:
  bool Start(int nCh, std::unique_ptr<Trace> prTrace) {
    const std::lock_guard<std::mutex> rGuard(rMutex);
    if (rRunning.count(nCh) > 0) return false;
    prTrace->Start();
    rRunning[nCh] = std::move(prTrace);
    return true;
  }
  void Stop(int nCh) {
    std::unique_ptr<Trace> prTrace;
    {
      const std::lock_guard<std::mutex> rGuard(rMutex);
      const auto it = rRunning.find(nCh);
      if (it == rRunning.end()) return;
      prTrace = std::move(it->second);
      rRunning.erase(it);
    }
    prTrace->Stop();
  }
  bool IsRunning(int nCh) {
    const std::lock_guard<std::mutex> rGuard(rMutex);
    return rRunning.count(nCh) > 0;
  }
  void StopAll() {
    while (true) {
      int nCh = 0;
      {
        const std::lock_guard<std::mutex> rGuard(rMutex);
        if (rRunning.empty()) return;
        nCh = rRunning.begin()->first;
      }
      Stop(nCh);
    }
  }
  void Pass(const QueuedEvent& rQueued) {
    const std::lock_guard<std::mutex> rGuard(rMutex);
    const auto it = rRunning.find(rQueued.rEvent.nReference);
    if (it != rRunning.end()) it->second->Pass(rQueued);
  }

 private:
  std::mutex rMutex;
  std::map<int, std::unique_ptr<Trace>> rRunning;
};

// Never deleted: their threads may run while the process exits.
Traces& BitTraces() {
  static Traces& rTraces = *new Traces;
  return rTraces;
}

Traces& SignalTraces() {
  static Traces& rTraces = *new Traces;
  return rTraces;
}

}  // namespace

bool StartBitTrace(int nCh, LPFNDSTRECRAWDATA pfnBits) {
  return BitTraces().Start(nCh, std::make_unique<BitTrace>(nCh, pfnBits));
}

void StopBitTrace(int nCh) {
  BitTraces().Stop(nCh);
}

bool StartSignalTrace(int nCh, DTR_CALLBACK pfnSignal) {
  return SignalTraces().Start(nCh, std::make_unique<SignalTrace>(nCh, pfnSignal));
}

void StopSignalTrace(int nCh) {
  SignalTraces().Stop(nCh);
}

bool IsSignalTraced(int nCh) {
  return SignalTraces().IsRunning(nCh);
}

void StopAllTraces() {
  BitTraces().StopAll();
  SignalTraces().StopAll();
}

void TraceEvent(const QueuedEvent& rQueued) {
  if (rQueued.rEvent.wEventCode != E_RCV_DSTDChannel) return;
  BitTraces().Pass(rQueued);
  SignalTraces().Pass(rQueued);
}

}  // namespace simcards
