// The bit-stream trace: who is called with what, and that no call comes after the end.

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include "CardBench.h"

namespace {

constexpr DWORD ALL = 0xFFFFFFFF;
constexpr std::size_t BIT_BYTES = 40;  // of a piece

// What the callbacks were given; they know no object of the test.
struct Seen {
  std::mutex rMutex;
  std::condition_variable rChanged;
  std::map<int, std::string> rBits;    // by channel; guarded by rMutex, as all that follows
  std::vector<std::string> astrLines;  // "1 data 2e: 01", "1 event 1008 2 3 'text' 4"
  std::string strTime;
};

Seen& TheSeen() {
  static Seen rSeen;
  return rSeen;
}

BOOL TakeBits(int nCh, DWORD dwLen, LPBYTE pucData, WORD, WORD) {
  const std::lock_guard<std::mutex> rGuard(TheSeen().rMutex);
  TheSeen().rBits[nCh].append(reinterpret_cast<char*>(pucData), dwLen);
  TheSeen().rChanged.notify_all();
  return 1;
}

int TakeSignal(DWORD, char* szTime, int nCh, BYTE ucProcessType, BYTE ucCmd, WORD wLen, BYTE* pucData,
               void* pDSTEvent) {
  char acText[400];
  std::string strLine = std::to_string(nCh) + " ";
  if (ucProcessType == 0) {
    (void)std::snprintf(acText, sizeof acText, "data %x:", ucCmd);
    strLine += acText;
    for (int i = 0; i < wLen; i++) {
      (void)std::snprintf(acText, sizeof acText, " %02x", pucData[i]);
      strLine += acText;
    }
  } else {
    const auto* prEvent = static_cast<DST_EVENT*>(pDSTEvent);
    (void)std::snprintf(acText, sizeof acText, "event %x %x %x '%s' %u", prEvent->dwEventCode, prEvent->dwSubReason,
                        prEvent->dwXtraInfo, reinterpret_cast<const char*>(prEvent->pucBuffer), prEvent->dwDataLength);
    strLine += acText;
  }
  const std::lock_guard<std::mutex> rGuard(TheSeen().rMutex);
  TheSeen().astrLines.push_back(strLine);
  TheSeen().strTime = szTime;
  TheSeen().rChanged.notify_all();
  return 1;
}

class Shpa3Trace : public CardBench {
 protected:
  Shpa3Trace() {
    simcards::AddBoard(0, 3, CH_DST);
    TheSeen().rBits.clear();
    TheSeen().astrLines.clear();
  }
  int Signals(int nCh, bool fOn) {
    char acNothing[1] = {0};
    return DTRSendRawData2A3(ALL, acNothing, nCh, 255, fOn ? 1 : 0,
                             fOn ? reinterpret_cast<LPBYTE>(&TakeSignal) : nullptr);
  }
  // Bytes of bits, and lines.
  using Counts = std::pair<std::size_t, std::ptrdiff_t>;
  static Counts CountsOf(int nCh) {
    const std::lock_guard<std::mutex> rGuard(TheSeen().rMutex);
    const std::vector<std::string>& astrLines = TheSeen().astrLines;
    const std::string strChannel = std::to_string(nCh) + " ";
    return {TheSeen().rBits[nCh].size(), std::count_if(astrLines.begin(), astrLines.end(), [&](const auto& strLine) {
              return strLine.find(strChannel) == 0;
            })};
  }
  template <typename F>
  void Await(F fnHolds) {
    std::unique_lock<std::mutex> rLock(TheSeen().rMutex);
    EXPECT_TRUE(TheSeen().rChanged.wait_for(rLock, std::chrono::seconds(20), fnHolds));
  }
};

TEST_F(Shpa3Trace, SignallingOfTheTracedChannelIsTold) {
  ASSERT_EQ(SSM_OK, Signals(1, true));
  simcards::PushEvent(E_RCV_DSTDChannel, 1, 0x0008, 0, 0);
  simcards::PushEvent(E_RCV_DSTDChannel, 2, 0x000E, 0, 0);  // another channel
  simcards::PushEvent(E_CHG_ChState, 1, 8);                 // no signalling
  simcards::PushEvent(E_RCV_DSTDChannel, 1, 0x1008, 2, 3, "Hi");
  simcards::PushEvent(E_RCV_DSTDChannel, 1, 0x104A, 1, 0);
  simcards::PushEvent(E_RCV_DSTDChannel, 1, 0x1008, 0, 0, std::string(300, 'x'));
  Await([] { return TheSeen().astrLines.size() == 9; });
  ASSERT_EQ(SSM_OK, Signals(1, false));
  EXPECT_EQ("1 data 2e: 01", TheSeen().astrLines[0]);
  EXPECT_EQ("1 data 2f: 08 00 00 00", TheSeen().astrLines[1]);
  EXPECT_EQ("1 event 8 0 0 '' 0", TheSeen().astrLines[2]);
  EXPECT_EQ("1 data 30: 08 10 02 00 48 69", TheSeen().astrLines[3]);
  EXPECT_EQ("1 event 1008 2 3 'Hi' 2", TheSeen().astrLines[4]);
  EXPECT_EQ("1 data 31: 4a 10 01 00", TheSeen().astrLines[5]);
  EXPECT_EQ("1 event 104a 1 0 '' 0", TheSeen().astrLines[6]);
  EXPECT_EQ("1 event 1008 0 0 '" + std::string(254, 'x') + "' 254", TheSeen().astrLines[8]);
  EXPECT_EQ(12U, TheSeen().strTime.size()) << TheSeen().strTime;
}

TEST_F(Shpa3Trace, EventsStayQueuedForTheTimeAfterTheTrace) {
  ASSERT_EQ(SSM_OK, Signals(1, true));
  simcards::PushEvent(E_RCV_DSTDChannel, 1, 0x0008, 0, 0);
  ASSERT_EQ(SSM_OK, Signals(1, false));
  EXPECT_EQ("65 ref 1: 8\n", Events());
}

TEST_F(Shpa3Trace, BitsAreFlagsWithFramesBetween) {
  ASSERT_EQ(SSM_OK, SsmStartRecBitFlow(2, TakeBits));
  simcards::PushEvent(E_RCV_DSTDChannel, 2, 0x1008, 2, 0, "Hi");
  const std::string strFrame("\x08\x10\x02\x00Hi\x7e", 7);
  Await([&] {
    const std::string& strSoFar = TheSeen().rBits[2];
    return strSoFar.find(strFrame) != std::string::npos && strSoFar.size() >= 3 * BIT_BYTES;
  });
  ASSERT_EQ(SSM_OK, SsmStopRecBitFlow(2));
  const std::string strBits = TheSeen().rBits[2];  // no lock: nobody writes
  std::string strRest = strBits;
  strRest.erase(strRest.find(strFrame), strFrame.size());
  EXPECT_EQ(std::string(strRest.size(), 0x7E), strRest);
  EXPECT_EQ(0U, strBits.size() % BIT_BYTES);
  EXPECT_EQ(1U, TheSeen().rBits.size()) << "bits of a channel that nobody traces";
}

TEST_F(Shpa3Trace, NothingComesAfterTheEnd) {
  ASSERT_EQ(SSM_OK, SsmStartRecBitFlow(1, TakeBits));
  ASSERT_EQ(SSM_OK, Signals(1, true));
  Await([] { return !TheSeen().astrLines.empty() && !TheSeen().rBits[1].empty(); });
  ASSERT_EQ(SSM_OK, SsmStopRecBitFlow(1));
  ASSERT_EQ(SSM_OK, Signals(1, false));
  const Counts rEnded = CountsOf(1);
  simcards::PushEvent(E_RCV_DSTDChannel, 1, 0x0008, 0, 0);
  // Meanwhile another channel's trace has as much to tell as the ended one would have.
  ASSERT_EQ(SSM_OK, SsmStartRecBitFlow(2, TakeBits));
  ASSERT_EQ(SSM_OK, Signals(2, true));
  simcards::PushEvent(E_RCV_DSTDChannel, 2, 0x0008, 0, 0);
  Await(
      [] { return TheSeen().rBits[2].size() >= 3 * BIT_BYTES && TheSeen().astrLines.back() == "2 event 8 0 0 '' 0"; });
  EXPECT_EQ(rEnded, CountsOf(1));
  EXPECT_EQ(SSM_OK, SsmStopRecBitFlow(1)) << "stopping what does not run is no failure";
  EXPECT_EQ(SSM_OK, Signals(1, false));
}

TEST_F(Shpa3Trace, WrongUseIsRefused) {
  char acNothing[1] = {0};
  ASSERT_EQ(SSM_OK, SsmStartRecBitFlow(1, TakeBits));
  EXPECT_EQ(-1, SsmStartRecBitFlow(1, TakeBits));
  EXPECT_EQ("SsmStartRecBitFlow: channel 1 is traced already", LastError());
  EXPECT_EQ(-1, SsmStartRecBitFlow(2, nullptr));
  EXPECT_EQ("SsmStartRecBitFlow: no callback given", LastError());
  EXPECT_EQ(-1, SsmStartRecBitFlow(3, TakeBits));
  ASSERT_EQ(SSM_OK, Signals(1, true));
  EXPECT_EQ(-1, Signals(1, true));
  EXPECT_EQ("DTRSendRawData2A3: channel 1 is traced already", LastError());
  const std::string strOnly = "DTRSendRawData2A3: only switching the trace of signalling on and off is simulated";
  EXPECT_EQ(-1, DTRSendRawData2A3(ALL, acNothing, 1, 255, 1, nullptr));
  EXPECT_EQ(strOnly, LastError());
  EXPECT_EQ(-1, DTRSendRawData2A3(0, acNothing, 1, 255, 0, nullptr));
  EXPECT_EQ(-1, DTRSendRawData2A3(ALL, acNothing, 1, 254, 0, nullptr));
  EXPECT_EQ(-1, DTRSendRawData2A3(ALL, nullptr, 1, 255, 0, nullptr));
  EXPECT_EQ(strOnly, LastError());
}

TEST_F(Shpa3Trace, ResetEndsRunningTraces) {
  ASSERT_EQ(SSM_OK, SsmStartRecBitFlow(1, TakeBits));
  ASSERT_EQ(SSM_OK, Signals(1, true));
  simcards::Reset();
  simcards::AddBoard(0, 3, CH_DST);
  EXPECT_EQ(SSM_OK, SsmStartRecBitFlow(1, TakeBits));
  EXPECT_EQ(SSM_OK, Signals(1, true));
}

}  // namespace
