// CardBench: a fixture with an empty bench of simulated cards before and after each test.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "simcards.h"

class CardBench : public testing::Test {
 protected:
  CardBench() { simcards::Reset(); }
  ~CardBench() override { simcards::Reset(); }

  // The text of the last failure.
  static std::string LastError() {
    char acText[SSM_ERR_MSG_BYTES];
    SsmGetLastErrMsg(acText);
    return acText;
  }
  // The next event, without waiting for it; wEventCode is MAX_EVENT_SIZE when there is none.
  static SSM_EVENT NextEvent() {
    SSM_EVENT rEvent;
    if (SsmWaitForEventA(0, &rEvent) != SSM_OK) rEvent.wEventCode = MAX_EVENT_SIZE;
    return rEvent;
  }
  // All that waits, one line an event: "24 ref 3: 1", with the second and third value only when they are not 0.
  static std::string Events() {
    std::string strAll;
    char acData[1024];
    SSM_EVENT rEvent;
    rEvent.pvBuffer = acData;
    rEvent.dwBufferLength = sizeof acData;
    while (SsmWaitForEventA(0, &rEvent) == SSM_OK) {
      strAll += std::to_string(rEvent.wEventCode) + " ref " + std::to_string(rEvent.nReference) + ": " +
                std::to_string(rEvent.dwParam);
      if (rEvent.dwSubReason != 0) strAll += " sub " + std::to_string(rEvent.dwSubReason);
      if (rEvent.dwXtraInfo != 0) strAll += " xtra " + std::to_string(rEvent.dwXtraInfo);
      if (rEvent.dwDataLength > 0)
        strAll += " '" + std::string(static_cast<char*>(rEvent.pvBuffer), rEvent.dwDataLength) + "'";
      strAll += "\n";
    }
    return strAll;
  }
};
