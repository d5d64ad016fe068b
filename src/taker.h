// taker: a thread that takes the card's events as they come, so that no audio waits for what the main thread waits for.
// A ring holds half a second, and database, disk or service may hold the main thread up for longer. So each report of
// audio is carried out of the ring at once, into memory of our own; the main loop gets all events in the order in which
// the card delivered them, each report with its bytes.
//
// Memory: a block holds the audio of one report. There are blocks for TAKEN_S seconds of every line, as far as a
// quarter of the machine's memory goes; they are made when needed, and all but a few given back. When all are in use a
// report goes on without its bytes. Events go on too, up to a number and an amount of data that only a loop which
// stands for many minutes reaches; what comes then stays with the driver.
//
// Rings: the memory of a ring is painted with a pattern of eight bytes, whole when a recording begins, later the end of
// each part that was taken. So a ring tells by itself where the card has written. A report of a part that still is
// painted comes from the recording before, and is dropped. Where paint is gone before the part that is to be taken, the
// card has come round, and what is taken may have been overwritten. Audio does not hold the pattern by chance.
// Threads:   its own runs from Start to the destructor, and calls SsmWaitForEventA and SsmGetLastErrMsg alone of the
//            driver. All that is public: main.
// Ownership: a ring is the channel's; its memory stays until the taker is gone.
// Locks:     rMutex, for the copy of one report at the longest. No other lock is taken under it.
// Errors:    what fails is handed on with the events: the thread itself logs nothing, as the log may hold it up.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <vector>

#include "lock.h"
#include "mainqueue.h"
#include "shpa3api.h"

constexpr int TAKEN_S = 60;
constexpr int TAKEN_BLOCK_BYTES = 2048;  // also the most that is carried of an event's data; no card sends half of it
constexpr double NS_A_SECOND = 1e9;      // of MonotonicNs

enum ETakenKind {
  TAKEN_EVENT,  // rEvent as the driver gave it; its pvBuffer points to the data, null without
  TAKEN_AUDIO,  // a piece of audio of driver channel rEvent.nReference
  TAKEN_ERROR,  // the driver has failed; acBytes holds its text
};

struct TakenBlock {
  BYTE acBytes[TAKEN_BLOCK_BYTES];
};

struct TakenEvent {
  ETakenKind eKind = TAKEN_EVENT;
  SSM_EVENT rEvent;
  BYTE* acBytes = nullptr;    // in prBlock; null: no data, or audio for which there was no memory
  std::int64_t iTakenNs = 0;  // when, by MonotonicNs
  unsigned uiRecording = 0;   // of audio: its recording, a number of BeginRing
  int iBytes = 0;             // of audio
  bool fOverrun = false;      // the card may have overwritten them before they were taken
  long long iMoreErrors = 0;  // of a failure: so many have followed it
  std::unique_ptr<TakenBlock> prBlock;
};

// What an onlooker is told.
struct TakerFigures {
  double dBehindS = 0;  // the longest that an event has waited for the main loop, since the last question
  long long iWaitingBytes = 0;
  long long iLimitBytes = 0;
  long long iLostBytes = 0;  // since the start: for want of memory
  long long iOverrunBytes = 0;
};

// Nanoseconds on a clock that nobody sets.
std::int64_t MonotonicNs();
// The memory to be used for so many lines on this machine.
long long TakerLimitBytes(int iLines);

class Taker {
 public:
  // Rings rWakes, by which the main loop sleeps, for any event but audio: that is not urgent, see SleepMs.
  Taker(MainQueue& rWakes, long long iLimitBytes);
  ~Taker();
  Taker(const Taker&) = delete;
  Taker& operator=(const Taker&) = delete;

  // Takes events from now on. False: the system gives no thread.
  bool Start();
  // Takes none any more, and returns when none is on its way: within a wait of the driver, a fifth of a second. What
  // was taken is still to be handled.
  void Rest();
  void GoOn();

  // The next event, null when there is none; the caller's until the next call. The time is for TakeFigures.
  TakenEvent* Take(std::int64_t iNowNs);
  // How long the main loop may sleep when it has nothing to do. Audio wakes it from time to time, and not each time:
  // with many lines a wake-up would cost more than the audio.
  int SleepMs() const;
  // Takes the audio of one or two driver channels out of its turn, each piece in its order, and hands it to fnHandle.
  template <class Function>
  void TakeAudioOf(int iDrvCh, int iOtherDrvCh, Function fnHandle) {
    Fetch();
    for (TakenEvent& rTakenEvent : rFetched) {
      const int iOfCh = rTakenEvent.rEvent.nReference;
      if (rTakenEvent.eKind != TAKEN_AUDIO || (iOfCh != iDrvCh && iOfCh != iOtherDrvCh)) continue;
      if (!IsOver(rTakenEvent)) {
        NoteHandled(rTakenEvent);
        fnHandle(rTakenEvent);
      }
      rTakenEvent.uiRecording = NO_RECORDING;
    }
  }

  // Before the card is told to record into this ring of a channel; what it has reported so far is of no recording then.
  void BeginRing(int iDrvCh, BYTE* acRing, int iRingBytes);
  // When the card no longer records into it.
  void EndRing(int iDrvCh);
  // How far the recording of a channel has come, in bytes: what the card has reported, and what it must have written
  // since by the time that has passed.
  long long SpokenBytes(int iDrvCh);
  // How far it had come at the time of an event that is being handled: what stands behind that one was spoken later.
  long long SpokenBytes(int iDrvCh, std::int64_t iAtNs) const;

  // For how long the oldest event waits by now.
  double BehindS();
  TakerFigures TakeFigures();

 private:
  static constexpr unsigned NO_RECORDING = 0;

  struct Ring {
    BYTE* acBytes = nullptr;  // null: no recording
    int iBytes = 0;
    int iOffset = 0;  // taken up to here
    unsigned uiRecording = NO_RECORDING;
    bool fGoesOn = false;        // the card may have written in it before, and no report has come since
    bool fOverrun = false;       // once, so paint may stand where the card had been already
    long long iOverwritten = 0;  // so many bytes of those that are still to be reported
    long long iToCatchUp = 0;    // and so many until a report is of the present
    long long iTaken = 0;        // bytes of this recording
    std::int64_t iTakenNs = 0;   // when the last of them came
  };

  // -- on its own thread --
  static void* RunIt(void* prTaker);
  void Run();
  bool MayGoOn();
  void TakeOne();
  void HandOn(const SSM_EVENT& rEvent, const char* acBuffer, std::int64_t iNowNs);
  void HandOnError();
  void TakeReport(const SSM_EVENT& rEvent, std::int64_t iNowNs);
  int TakeRange(const Ring& rRing, int iStart, int iStop, const SSM_EVENT& rEvent, std::int64_t iNowNs)
      REQUIRES(rMutex);
  bool IsPainted(const Ring& rRing, int iEnd) const;
  void Paint(const Ring& rRing, int iStart, int iLength) const;
  TakenEvent& AddEvent(ETakenKind eKind, const SSM_EVENT& rEvent, std::int64_t iNowNs) REQUIRES(rMutex);
  void GiveBlock(TakenEvent& rTakenEvent) REQUIRES(rMutex);
  bool FindOverrun(Ring& rRing, int iStart, int iLength, std::int64_t iNowNs) REQUIRES(rMutex);
  bool IsFull() const REQUIRES(rMutex);

  // -- on the main thread --
  struct Handled {
    long long iBytes = 0;  // of the present recording
    std::int64_t iTakenNs = 0;
  };
  void Fetch();
  void CountErrors() REQUIRES(rMutex);
  void MakeRoom();
  void NoteHandled(const TakenEvent& rAudio);
  void PutToUsed(std::list<TakenEvent>& rFrom);
  void GiveBack() REQUIRES(rMutex);
  bool IsOver(const TakenEvent& rTakenEvent) const;

  MainQueue& rMainQueue;
  const std::size_t iMostBlocks;
  const std::size_t iMostEvents;
  BYTE acPattern[8];
  pthread_t rThread{};
  bool fStarted = false;

  std::atomic<bool> fHold{false};  // there is something for the thread to wait for; only a hint to look under rMutex
  Mutex rMutex;
  ConditionVariable rChanged;
  bool fStopping GUARDED_BY(rMutex) = false;
  bool fResting GUARDED_BY(rMutex) = false;  // has been asked to
  bool fAtRest GUARDED_BY(rMutex) = true;    // and does
  bool fErrorWaits GUARDED_BY(rMutex) = false;
  long long iMoreErrors GUARDED_BY(rMutex) = 0;  // behind the one that waits
  std::list<TakenEvent> rTaken GUARDED_BY(rMutex);
  std::size_t iFetched GUARDED_BY(rMutex) = 0;  // events that the main loop has fetched and may not have handled yet
  std::vector<Ring> vRings GUARDED_BY(rMutex);  // by driver channel
  std::list<TakenEvent> rSpare GUARDED_BY(rMutex);  // with their blocks, so that nothing is allocated on the way
  std::size_t iBlocks GUARDED_BY(rMutex) = 0;       // in use
  long long iLostBytes GUARDED_BY(rMutex) = 0;
  long long iOverrunBytes GUARDED_BY(rMutex) = 0;

  // The main thread's own.
  std::list<TakenEvent> rFetched;
  std::list<TakenEvent> rHandled;  // what Take has returned last
  std::list<TakenEvent> rUsed;     // to be given back
  std::size_t iUsedBlocks = 0;
  std::vector<unsigned> vRecordings;  // the present one of each driver channel
  std::vector<Handled> vHandled;      // likewise
  unsigned uiLastRecording = NO_RECORDING;
  int iOpenRings = 0;
  std::int64_t iLongestNs = 0;
};
