// The script is a long-lived child (LineCom), because an interpreter for each call would cost more than the work
// itself.
#include "bgact_tracker.h"

#include <syslog.h>

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

}  // namespace

Tracker::~Tracker() {
  close();
}

void Tracker::init() {
  if (m_lineCom != nullptr) return;
  m_lineCom = new LineCom;
  const char* aacArgs[] = {TRACKER_PROGRAM, TRACKER_SCRIPT, nullptr};
  m_lineCom->Init(TRACKER_PROGRAM, aacArgs);
  m_lineCom->SupportsExitMsg();
  m_lineCom->SetRestartInterval(TRACKER_RESTART_S);
  m_lineCom->SetReadTimeout(TRACKER_READ_S);
  m_lineCom->SetErrorTimeout(TRACKER_ERROR_S);
  m_lineCom->SetErrorRecheckInterval(TRACKER_RECHECK_FACTOR);
}

void Tracker::postCall(int iCallID) {
  const MutexLock rLock(rMutex);  // a post in retry blocks the other worker, if that has one too
  init();
  std::string strReply;
  if (m_lineCom->SendMsg("type=crec&act=post&id=" + ToStdString(iCallID) + "\n", strReply)) {
    lg(LOG_NOTICE, "LineCom reply: %s", strReply.c_str());
  } else {
    lg(LOG_ERR, "LineCom SendMsg post failed");  // retried long enough: the row in Calls stands as it is
  }
}

void Tracker::close() {
  const MutexLock rLock(rMutex);
  if (m_lineCom == nullptr) return;
  m_lineCom->Stop();
  delete m_lineCom;
  m_lineCom = nullptr;
}

void CallPostAct::performThread() {
  lg(LOG_NOTICE, "Call Post id=%d", iCallID);
  theTracker.postCall(iCallID);
  lg(LOG_NOTICE, "Post done");
}

void CallPostAct::performMain() {}
