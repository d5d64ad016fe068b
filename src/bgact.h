// bgact: worker threads for slow work, the queue that feeds them, and the actions that travel through it.
// Conversions and shell commands may take minutes and must not hold up card events, so they travel as actions: a slow
// part for a worker (performThread) and a part for the main thread (performMain, then completed).
// Files:     bgact.cpp threads, queue and the short actions, bgact_audioconv.cpp AudioConvAct and calcSum.
// Threads:   queueAction, isBgQueueReady: any. performThread: a worker. performMain, completed: main.
//            Before init_bgact an action runs at once on the caller's thread, and completed is not called. So it does
//            while the system refuses any worker; but what runs alone waits for one.
// Ownership: queueAction takes the action over; the caller keeps no pointer.
// Locks:     rMutex guards rList and is never held while an action runs. Idle workers wait with it (rWakeUp).
// Errors:    none of its own; a failed performThread still reaches performMain.
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <list>
#include <string>

#include "irecorder.h"
#include "lock.h"
#include "mainqueue.h"

constexpr mode_t RECORDING_MODE = 0777;  // the web side, another user, reads, moves and deletes recordings

// Removes a file of a recording that is not kept.
class DeleteFileAct : public ThreadAct {
 public:
  void performThread() override;
  void performMain() override;

  std::string strFilename;
};

// Finishes a kept recording. The worker converts, checks, encrypts and takes the checksum; the main thread moves the
// row from ActiveCalls to Calls. What the main part needs of the file work travels in rCallInfo.
class AudioConvAct : public ThreadAct {
 public:
  void performThread() override;
  void performMain() override;

  IDatabase* prDB = nullptr;
  StringMap rCallInfo;     // the future row of Calls
  int iActiveCallID = -1;  // never -1 in a queued action
  ERecEncodings eRecEnc = RECENC_G711A;
  bool fStereo = false;
  std::string strFullFilename;       // the file that the channel wrote
  std::string strFullFilenameFinal;  // the file to produce
  std::string strArchiveFilename;    // its path in the archive
  bool fToEmail = false;
  int iEmailContactID = -1;  // contact of the local party, for the mail
  int iDuration = 0;         // seconds
  std::string strCheckSumType;
  bool fStoreOnDemandDelay = false;  // the call stays active, waiting for a decision
  // Not owned, outlives the action. fRecCheck, fALE and strArchiveRoot are asked of it on the worker, as they hold for
  // its whole life.
  ICRecorder* prRecorder = nullptr;

 private:
  // -- on a worker --
  void Convert();
  void KeepInPlace();
  // Each true when the final file holds the whole recording.
  bool ConvertToGsm();
  bool ConvertToMp3();
  void ReplaceSource(bool fWhole);
  void RescueSource();
  void Encrypt();
  void ReportLoss();
  void AddCheckSum();
  // -- on the main thread --
  void MergeCarryOver(const StdStringMap& rCarryOver);
  void MoveToCalls();
  void KeepActive();

  bool fSourceStays = false;  // until there is an encrypted file, or none can be made
  bool fLost = false;         // has been told
};

// A message to the service socket that the main thread does not wait for.
class SlowHandlerMsg : public ThreadAct {
 public:
  void performThread() override;
  void performMain() override;

  std::string msg;
};

constexpr int ATHREAD = 2;               // workers; bounds the number of conversions at a time
constexpr int MAX_ALONE_WAITING = 1000;  // hours of a site that posts its calls while the script is gone

class BgActHandler {
 public:
  // Asks the system for the workers that are not there.
  void init();
  // What is still listed is dropped; what runs alone hears of it.
  void close();
  // While the system has refused a worker, it is asked for it again at each action: one that is left alone may wait for
  // minutes in one action, and all others would wait with it.
  bool hasWorker();
  // The loop of worker ix; returns when told to stop.
  void run(int ix);
  // A worker's turn: performThread, then over to the main thread.
  void handleAction(ThreadAct* prAct);
  void queue(ThreadAct* prAct);
  // No queued and no running action. A worker is busy until the main queue has its action, so this answer and an empty
  // main queue afterwards mean that no work is left anywhere. Where the system refuses any worker, what waits for one
  // does not count: only actions that run alone do.
  bool ready();
  // The same but for actions that run alone.
  bool readyButAlone();

 private:
  enum EWork { WORK_NONE, WORK_ANY, WORK_ALONE };

  static void* run_it(void* pIx);
  // Waits for an action that may run, and takes the first such, worker ix busy with it from then on; null when told to
  // stop.
  ThreadAct* take(int ix);
  bool isAloneRunning() const;
  // False when too many of its kind wait.
  bool append(ThreadAct* prAct);

  Mutex rStartMutex;  // held while workers are asked for
  pthread_t rThread[ATHREAD] = {};
  std::atomic<bool> fStarted[ATHREAD] = {};  // that rThread is one
  Mutex rMutex;
  ConditionVariable rWakeUp;  // of an idle worker: for an action, or to stop
  bool fPleaseStop GUARDED_BY(rMutex) = false;
  std::atomic<EWork> eWork[ATHREAD] = {};          // what that worker holds; begun under rMutex
  std::list<ThreadAct*> rList GUARDED_BY(rMutex);  // first in, first out, but for those that run alone
  int iAloneWaiting GUARDED_BY(rMutex) = 0;        // of rList
};
extern BgActHandler* prBgActHandler;  // null until init_bgact, not reset by close_bgact

void init_bgact();
// Joins the workers, drops what is still listed, and closes the tracker. Nothing may be queued afterwards.
void close_bgact();
void queueAction(ThreadAct* prAct);
bool isBgQueueReady();
bool isBgQueueReadyButAlone();

// Checksum of a file by an external tool: the first word of its output, empty when the output has no blank.
std::string calcSum(const std::string& strProgram, const std::string& strFileName);
