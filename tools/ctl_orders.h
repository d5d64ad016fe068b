// ctl_orders: orders as people give them. An answer of the daemon is short and for one of them means nothing, so what
// came of an order is looked up among the calls in progress, before and after.
#pragma once

#include <string>

#include "ctl_socket.h"
#include "ctl_status.h"

// By one of both.
struct CallName {
  std::string strCallId;
  int iLine = 0;  // 0: by the id
};

struct LocalChange {
  std::string strLocal, strRemote;
  bool fStopStart = false;  // a new part of the recording begins
};

// Each gives its order, prints what came of it, and returns the exit status.
int RunOrder(const std::string& strOrder);
int RunCallOrder(const std::string& strWord, const CallName& rName);  // "silence", "start", ...
int RunChangeLocal(const LocalChange& rChange);
int RunChst(int iLine, bool fJson);

// The one running call of a line: its id as text with CTL_OK, else why there is none.
CtlReply FindCallOnLine(const CtlStatus& rStatus, int iLine);
// Under which id the line of this call goes on: the only one that is new there; empty when there is none.
std::string NewCallId(const CtlStatus& rBefore, const CtlStatus& rAfter, const std::string& strCallId);
// What became of an order "change_local".
CtlReply JudgeLocalChange(const CtlStatus& rBefore, const CtlStatus& rAfter, const LocalChange& rChange);
// The setting that allows this order; empty for one that needs none.
std::string SettingOf(const std::string& strWord);
