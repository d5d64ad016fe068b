// Orders to the control socket, one a line of the input, as any client may write them. There are two lines: one in a
// call "call-1", with the remote number 123, and one without. The main thread has its turn while the reactor sleeps.
#include "reactor.h"

#include <unistd.h>

#include <memory>
#include <set>

#include "FakeDatabase.h"
#include "FuzzCheck.h"
#include "LogSink.h"
#include "OpenChannel.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "simcards.h"

extern "C" int usleep(useconds_t /*uiMicroseconds*/) {
  while (g_prBoot != nullptr && g_prBoot->RunOneAction()) continue;
  return 0;
}

namespace {

constexpr const char* NO_REPLY = "(none)";
constexpr const char* OK = "OK";

// What an order that an outsider writes may be answered by.
std::set<std::string> KnownReplies(const std::string& strWord) {
  if (strWord == "sound" || strWord == "silence") {
    return {OK, "E2: unknown call", "E3: option silence-on-demand is off"};
  }
  if (strWord == "start" || strWord == "stop") return {OK, "E2: unknown call", "E3: option RecOnDmd is off"};
  if (strWord == "delete") return {OK, "E2: unknown call", "E3: option DelOnDmd is off"};
  if (strWord == "reconfig" || strWord == "chst") return {OK};
  if (strWord == "bittrace_start") return {OK, "ERR: already started"};
  if (strWord == "bittrace_stop") return {OK, "ERR: already stopped"};
  if (strWord == "change_local") return {OK, "E2: unknown call", NO_REPLY};
  return {"E0: Unknown commmand"};
}

class Recorder {
 public:
  explicit Recorder(unsigned uiOptions) {
    simcards::Reset();
    simcards::AddBoard(0, 2, CH_ANALOG);
    auto prDb = std::make_unique<FakeDatabase>();
    // Of numbers only listed ones, and none is: no order comes to a recording.
    prDb->rParts["o"] = {{"DelOnDmdType", std::to_string(uiOptions & 3)}, {"NumberFilterType", "1"}};
    rBoot.prDatabase = std::move(prDb);
    rRecorder.prBoot = &rBoot;
    rRecorder.prDatabase = rBoot.prDatabase.get();
    rRecorder.Reconfigure();
    rRecorder.fSilenceOnDemand = (uiOptions & 4) != 0;
    rRecorder.fCrecTestSwapLocRem = (uiOptions & 16) != 0;
    for (const int i : {0, 1}) AddLine(i).fRecOnDmd = (uiOptions & 8) != 0;
    rRecorder.vChannels[0]->*&OpenChannel<BaseChannel>::fCallBusy = true;
    rRecorder.vChannels[0]->strDbRemoteId = "call-1";
    rRecorder.vChannels[0]->*&OpenChannel<BaseChannel>::strRemoteNum = "123";
    g_prBoot = &rBoot;
    g_prReactor = &rReactor;
  }
  ~Recorder() {
    g_prReactor = nullptr;
    g_prBoot = nullptr;
    (void)logsink::Take();
  }
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  void Order(const std::string& strMsg) {
    const std::string strWord = strMsg.substr(0, strMsg.find(' '));
    const bool fTracing = rRecorder.fBitStreamTracing;
    const char* acReply = rReactor.ReplyTo(strMsg);
    (void)usleep(0);  // what is answered at once is done later
    const std::string strReply = acReply != nullptr ? acReply : NO_REPLY;
    FuzzCheck(KnownReplies(strWord).count(strReply) == 1, "a reply is one of those of its order");
    FuzzCheck(!rReactor.fWaitingOnMain || strReply != OK, "what is done is not waited for");
    const bool isTraceOrder = strWord == "bittrace_start" || strWord == "bittrace_stop";
    FuzzCheck(isTraceOrder || rRecorder.fBitStreamTracing == fTracing, "only its own orders change the trace");
    FuzzCheck(!isTraceOrder || rRecorder.fBitStreamTracing == (strWord == "bittrace_start"), "a trace order is done");
    const BaseChannel& rIdle = *rRecorder.vChannels[1];
    FuzzCheck(rIdle.strDbRemoteId.empty() && !(rIdle.*&OpenChannel<BaseChannel>::fRecording), "no order makes a call");
    (void)logsink::Take();
  }

 private:
  OpenChannel<BaseChannel>& AddLine(int iDrvCh) {
    auto prChannel = std::make_unique<OpenChannel<BaseChannel>>();
    OpenChannel<BaseChannel>& rChannel = *prChannel;
    rChannel.prRecorder = &rRecorder;
    rChannel.iChIx = rChannel.iDrvCh = iDrvCh;
    rChannel.iChannel = iDrvCh + 1;
    rRecorder.vChannels.push_back(prChannel.release());  // the recorder's now
    return rChannel;
  }

  TRecorderBoot rBoot;
  CRecorder rRecorder;  // after rBoot: channels go before the database
  CrecReactor rReactor{&rRecorder};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  const std::string strAll = FuzzText(prData, iSize);
  Recorder rRecorder(strAll.empty() ? 0 : static_cast<unsigned char>(strAll[0]));
  for (std::size_t iStart = 1; iStart < strAll.size();) {
    const std::size_t iEnd = std::min(strAll.find('\n', iStart), strAll.size());
    rRecorder.Order(strAll.substr(iStart, iEnd - iStart));
    iStart = iEnd + 1;
  }
  return 0;
}
