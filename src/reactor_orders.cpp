// What the orders of the control socket do. Each becomes an action, which carries it to the main thread; the order
// table joins words, actions and replies.
//
// The wait for the main thread is short and cancels nothing: a client that is told "time-out" may find its order done
// a moment later, and a late completion releases the next order's wait too early, which then replies from the late
// result. Orders are rare and the main loop is quick, so that is accepted.
#include "reactor.h"

#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <string>

#include "fstring.h"
#include "logging.h"
#include "mainqueue.h"
#include "recorder.h"

namespace {

constexpr int MAX_WAIT_ON_MAIN_MS = 300;
constexpr int WAIT_STEP_MS = 50;

// -- actions ----------------------------------------------------------------------------------------------------------

// Straight to the main thread: no action here has work for a worker.
class ReactorAct : public ThreadAct {
 public:
  explicit ReactorAct(CRecorder* prRecorderToUse) : prRecorder(prRecorderToUse) {}
  void performThread() override {}

 protected:
  CRecorder* prRecorder;
};

// An action that the reactor waits for.
class AwaitedAct : public ReactorAct {
 public:
  using ReactorAct::ReactorAct;
  void completed() override {
    if (g_prReactor != nullptr) g_prReactor->fWaitingOnMain = false;
  }
};

// One whose result decides the reply.
class ResultAct : public AwaitedAct {
 public:
  using AwaitedAct::AwaitedAct;
  void completed() override {
    if (g_prReactor != nullptr) g_prReactor->iActResult = iResult;  // before the wait ends
    AwaitedAct::completed();
  }

 protected:
  int iResult = ACT_DONE;
};

// Each of the three says first that it waits no longer: an order that comes from then on wants one of its own.
class ReconfigAct : public ReactorAct {
 public:
  using ReactorAct::ReactorAct;
  void performMain() override {
    if (g_prReactor != nullptr) g_prReactor->fReconfigWaits = false;
    prRecorder->Reconfigure();
  }
};

class TraceStartAct : public ReactorAct {
 public:
  using ReactorAct::ReactorAct;
  void performMain() override {
    if (g_prReactor != nullptr) {
      g_prReactor->fTraceStartWaits = false;
      prRecorder->iBitStreamChNr = g_prReactor->iTraceChNr;
    }
    prRecorder->fBitStreamTracing = true;
  }
};

class TraceStopAct : public ReactorAct {
 public:
  using ReactorAct::ReactorAct;
  void performMain() override {
    if (g_prReactor != nullptr) g_prReactor->fTraceStopWaits = false;
    prRecorder->fBitStreamTracing = false;
  }
};

class ChStateAct : public AwaitedAct {
 public:
  ChStateAct(CRecorder* prRecorderToUse, int iLine) : AwaitedAct(prRecorderToUse), iChNr(iLine) {}
  void performMain() override { (void)prRecorder->ChState(iChNr); }  // the client looks at the file

 private:
  int iChNr;  // line number
};

class ChLocalAct : public AwaitedAct {
 public:
  using AwaitedAct::AwaitedAct;
  void performMain() override { (void)prRecorder->ChLocal(strLocalPhoneNum, strRemotePhoneNum, stopstart); }

  std::string strLocalPhoneNum;
  std::string strRemotePhoneNum;
  bool stopstart = false;
};

class SilencingAct : public ResultAct {
 public:
  SilencingAct(CRecorder* prRecorderToUse, const std::string& strId, bool fSoundOn)
      : ResultAct(prRecorderToUse), strCallId(strId), fSound(fSoundOn) {}
  void performMain() override { iResult = prRecorder->SilencingAct(strCallId, fSound); }

 private:
  std::string strCallId;
  bool fSound;
};

class RecOnDmdAct : public ResultAct {
 public:
  RecOnDmdAct(CRecorder* prRecorderToUse, const std::string& strId, bool fToStart)
      : ResultAct(prRecorderToUse), strCallId(strId), fStart(fToStart) {}
  void performMain() override { iResult = prRecorder->RecOnDmdAct(strCallId, fStart); }

 private:
  std::string strCallId;
  bool fStart;
};

class DelOnDmdAct : public ResultAct {
 public:
  DelOnDmdAct(CRecorder* prRecorderToUse, const std::string& strId) : ResultAct(prRecorderToUse), strCallId(strId) {}
  void performMain() override { iResult = prRecorder->DelOnDmdAct(strCallId); }

 private:
  std::string strCallId;
};

// -- orders -----------------------------------------------------------------------------------------------------------

template <bool fSound>
ThreadAct* MakeSilencing(CRecorder* prRecorder, const std::string& strParam) {
  return new SilencingAct(prRecorder, strParam, fSound);
}

template <bool fStart>
ThreadAct* MakeRecOnDmd(CRecorder* prRecorder, const std::string& strParam) {
  return new RecOnDmdAct(prRecorder, strParam, fStart);
}

ThreadAct* MakeDelOnDmd(CRecorder* prRecorder, const std::string& strParam) {
  return new DelOnDmdAct(prRecorder, strParam);
}

ThreadAct* MakeReconfig(CRecorder* prRecorder, const std::string& /*strParam*/) {
  return new ReconfigAct(prRecorder);
}

// The flag changes only when the main thread runs the action, so two quick starts can both get through.
ThreadAct* MakeTraceStop(CRecorder* prRecorder, const std::string& /*strParam*/) {
  return prRecorder->fBitStreamTracing ? new TraceStopAct(prRecorder) : nullptr;
}

// The channel reaches a start that waits already, too: the last one counts.
ThreadAct* MakeTraceStart(CRecorder* prRecorder, const std::string& strParam) {
  if (prRecorder->fBitStreamTracing) return nullptr;
  if (g_prReactor != nullptr) g_prReactor->iTraceChNr = TextToInt(strParam);
  return new TraceStartAct(prRecorder);
}

ThreadAct* MakeChState(CRecorder* prRecorder, const std::string& strParam) {
  return new ChStateAct(prRecorder, TextToInt(strParam));
}

// "<local number>|<remote number>|<0: change only the row; else: a new recording part>".
ThreadAct* MakeChLocal(CRecorder* prRecorder, const std::string& strParam) {
  auto* prAct = new ChLocalAct(prRecorder);
  const std::list<std::string> astrElements = getElements(strParam);
  auto itElement = astrElements.begin();
  if (itElement != astrElements.end()) prAct->strLocalPhoneNum = *itElement++;
  if (itElement != astrElements.end()) prAct->strRemotePhoneNum = *itElement++;
  if (itElement != astrElements.end()) prAct->stopstart = *itElement != "0";
  return prAct;
}

enum EReplyFrom {
  REPLY_AT_ONCE,    // "OK" when the action is queued
  REPLY_WHEN_DONE,  // "OK" when it has completed
  REPLY_BY_RESULT,  // by CrecReactor::iActResult when it has completed
};

constexpr const char* REPLY_OK = "OK";

struct OrderRow {
  const char* acWord;
  ThreadAct* (*Make)(CRecorder* prRecorder, const std::string& strParam);  // null: refused before it is queued
  EReplyFrom eReplyFrom;
  const char* acRefused;  // the reply to a refusal; null: none is sent
  // Nobody waits for these, so a client in a loop could fill the queue. One that has not begun does what any other of
  // its kind behind it would, and takes their place. Null: each order is queued.
  std::atomic<bool> CrecReactor::*pfOneWaits = nullptr;
};

// "change_local" has no refusal of its own, and its action leaves iActResult alone: the reply tells of the silencing,
// recording or delete order before it, and after a refused one there is none. Clients live with that; see
// ChangeLocalRepliesByTheOrderBefore.
constexpr OrderRow ORDERS[] = {
    {"sound", MakeSilencing<true>, REPLY_BY_RESULT, "E3: option silence-on-demand is off"},
    {"silence", MakeSilencing<false>, REPLY_BY_RESULT, "E3: option silence-on-demand is off"},
    {"start", MakeRecOnDmd<true>, REPLY_BY_RESULT, "E3: option RecOnDmd is off"},
    {"stop", MakeRecOnDmd<false>, REPLY_BY_RESULT, "E3: option RecOnDmd is off"},
    {"delete", MakeDelOnDmd, REPLY_BY_RESULT, "E3: option DelOnDmd is off"},
    {"reconfig", MakeReconfig, REPLY_AT_ONCE, nullptr, &CrecReactor::fReconfigWaits},
    {"bittrace_stop", MakeTraceStop, REPLY_AT_ONCE, "ERR: already stopped", &CrecReactor::fTraceStopWaits},
    {"bittrace_start", MakeTraceStart, REPLY_AT_ONCE, "ERR: already started", &CrecReactor::fTraceStartWaits},
    {"chst", MakeChState, REPLY_WHEN_DONE, nullptr},
    {"change_local", MakeChLocal, REPLY_BY_RESULT, nullptr},
};
constexpr const char* REPLY_UNKNOWN_CALL = "E2: unknown call";
constexpr const char* REPLY_TIME_OUT = "E4: time-out";
constexpr const char* REPLY_UNKNOWN_ORDER = "E0: Unknown commmand";  // clients compare this spelling

const char* ReplyOfResult(const OrderRow& rRow, int iActResult) {
  switch (iActResult) {
    case ACT_DONE:
      return REPLY_OK;
    case ACT_UNKNOWN_CALL:
      return REPLY_UNKNOWN_CALL;
    case ACT_REFUSED:
      return rRow.acRefused;
    default:  // no service has any other
      return nullptr;
  }
}

// The reply, null for none.
const char* RunOrder(CrecReactor& rReactor, const OrderRow& rRow, const std::string& strParam) {
  if (rRow.eReplyFrom != REPLY_AT_ONCE) rReactor.fWaitingOnMain = true;  // before the action can complete
  std::unique_ptr<ThreadAct> prAct(rRow.Make(rReactor.prRecorder, strParam));
  if (prAct == nullptr) return rRow.acRefused;
  const bool fOneWaits = rRow.pfOneWaits != nullptr && (rReactor.*rRow.pfOneWaits).exchange(true);
  if (!fOneWaits) mainQueue(prAct.release());
  if (rRow.eReplyFrom == REPLY_AT_ONCE) return REPLY_OK;
  if (!rReactor.DoWaitOnMain(MAX_WAIT_ON_MAIN_MS)) return REPLY_TIME_OUT;
  return rRow.eReplyFrom == REPLY_WHEN_DONE ? REPLY_OK : ReplyOfResult(rRow, rReactor.iActResult);
}

}  // namespace

// -- the road of an order ---------------------------------------------------------------------------------------------

const char* CrecReactor::ReplyTo(const std::string& strMsg) {
  const std::size_t iBlank = strMsg.find(' ');
  const std::string strOrder = strMsg.substr(0, iBlank);
  const std::string strParam = iBlank == std::string::npos ? "" : strMsg.substr(iBlank + 1);
  lgOften("Command: '%s' Param: '%s'", strOrder.c_str(), strParam.c_str());
  for (const OrderRow& rRow : ORDERS) {
    if (strOrder == rRow.acWord) return RunOrder(*this, rRow, strParam);
  }
  return REPLY_UNKNOWN_ORDER;
}

bool CrecReactor::DoWaitOnMain(int iMaxWaitMs) {
  if (!fWaitingOnMain) return true;
  for (int iWaitMs = WAIT_STEP_MS;; iWaitMs += WAIT_STEP_MS) {
    (void)usleep(WAIT_STEP_MS * 1000);
    if (!fWaitingOnMain) return true;
    if (iWaitMs > iMaxWaitMs) return false;
  }
}
