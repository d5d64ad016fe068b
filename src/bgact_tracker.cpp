// The script is a long-lived child (LineCom), because an interpreter for each call would cost more than the work
// itself.
#include "bgact_tracker.h"

#include <syslog.h>

#include <algorithm>

#include "LineCom.h"
#include "fstring.h"
#include "logging.h"

Tracker theTracker;

namespace {

constexpr const char* TRACKER_PROGRAM = "/usr/bin/php";
constexpr const char* TRACKER_SCRIPT = "/var/morvex/cmd/tracker.php";
constexpr int TRACKER_RESTART_S = 600;
constexpr int TRACKER_READ_S = 30;
constexpr int TRACKER_ERROR_S = 120;
constexpr int TRACKER_RECHECK_FACTOR = 1;
constexpr double PATIENCE_S = 10;  // a script that works answers in parts of a second

}  // namespace

Tracker::~Tracker() {
  close();
}

void Tracker::init() {
  if (m_lineCom != nullptr) return;
  auto* prCom = new LineCom;
  const char* aacArgs[] = {TRACKER_PROGRAM, TRACKER_SCRIPT, nullptr};
  prCom->Init(TRACKER_PROGRAM, aacArgs);
  prCom->SupportsExitMsg();
  prCom->SetRestartInterval(TRACKER_RESTART_S);
  prCom->SetReadTimeout(TRACKER_READ_S);
  prCom->SetErrorTimeout(TRACKER_ERROR_S);
  prCom->SetErrorRecheckInterval(TRACKER_RECHECK_FACTOR);
  m_lineCom = prCom;
}

void Tracker::postCall(int iCallID) {
  const MutexLock rLock(rMutex);
  init();
  LineCom* prCom = m_lineCom;
  if (fGivenUp) prCom->SignalStop();  // by an order that came before there was a child
  setPost(StopWatch());
  std::string strReply;
  if (prCom->SendMsg("type=crec&act=post&id=" + ToStdString(iCallID) + "\n", strReply)) {
    lg(LOG_NOTICE, "LineCom reply: %s", strReply.c_str());
  } else {
    lg(LOG_ERR, "LineCom SendMsg post failed");  // retried long enough: the row in Calls stands as it is
  }
  setPost(std::nullopt);
}

void Tracker::setPost(const std::optional<StopWatch>& rSince) {
  const MutexLock rLock(rPostMutex);
  rPost = rSince;
}

bool Tracker::isSilent(const StopWatch& rWait) {
  const MutexLock rLock(rPostMutex);
  return rPost && std::min(rPost->Seconds(), rWait.Seconds()) >= PATIENCE_S;
}

// Without rMutex, as a post holds that for as long as it takes; what is made in between asks fGivenUp.
void Tracker::limitStop() {
  if (!rStopping) rStopping.emplace();
  if (!isSilent(*rStopping)) return;
  fGivenUp = true;
  if (LineCom* prCom = m_lineCom) prCom->SignalStop();
}

void Tracker::close() {
  const MutexLock rLock(rMutex);
  rStopping.reset();
  fGivenUp = false;
  LineCom* prCom = m_lineCom.exchange(nullptr);
  if (prCom == nullptr) return;
  prCom->Stop();
  delete prCom;
}

void CallPostAct::performThread() {
  lg(LOG_NOTICE, "Call Post id=%d", iCallID);
  theTracker.postCall(iCallID);
  lg(LOG_NOTICE, "Post done");
}

void CallPostAct::performMain() {}

void CallPostAct::refused(const char* acReason) {
  lg(LOG_ERR, "Call Post id=%d given up, %s", iCallID, acReason);
}
