// Rings, reports and overruns of SsmRecToMem, driven byte by byte with Advance.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "CardBench.h"
#include "simcards_g711.h"

namespace {

constexpr DWORD RING = 4096;

class SimRecord : public CardBench {
 protected:
  SimRecord() : vRing(RING, 0) { simcards::AddBoard(0, 2, CH_ANALOG); }

  void Report(DWORD dwWay, DWORD dwCondition) {
    EVENT_SET_INFO rSetting;
    rSetting.dwWorkMode = EVENT_POLLING;
    rSetting.dwOutParamVal = dwWay;
    rSetting.dwOutCondition = dwCondition;
    ASSERT_EQ(SSM_OK, SsmSetEvent(E_PROC_RecordMem, -1, 1, &rSetting));
  }
  void Start(int nCh = 1, int nFormat = SSM_FORMAT_ALAW) {
    ASSERT_EQ(SSM_OK, SsmRecToMem(nCh, nFormat, vRing.data(), RING, 0));
  }
  // Positions of the reports that wait.
  std::vector<DWORD> Positions() {
    std::vector<DWORD> vPositions;
    for (SSM_EVENT rEvent = NextEvent(); rEvent.wEventCode == E_PROC_RecordMem; rEvent = NextEvent()) {
      vPositions.push_back(rEvent.dwParam);
    }
    return vPositions;
  }

  std::vector<BYTE> vRing;
};

using Positions_t = std::vector<DWORD>;

TEST_F(SimRecord, ReportsEachHalfRingOnABench) {
  Start();
  simcards::Advance(2047);
  EXPECT_EQ(Positions_t{}, Positions());
  simcards::Advance(1);
  EXPECT_EQ(Positions_t{2048}, Positions());
  simcards::Advance(2048);
  EXPECT_EQ(Positions_t{0}, Positions());
}

TEST_F(SimRecord, WaysOfReporting) {
  const struct {
    const char* acLabel;
    DWORD dwWay, dwCondition;
    Positions_t vExpected;  // within 10000 bytes
  } arRows[] = {
      {"bytes", MEM_BYTES, 3000, {3000, 1904, 808}},         {"bytes beyond the ring", MEM_BYTES, 5000, {904, 1808}},
      {"half ring", END_HALF_BUFFER, 0, {2048, 0, 2048, 0}}, {"ring", END_BUFFER, 0, {0, 0}},
      {"offset", MEM_OFFSET, 100, {100, 100, 100}},          {"offset 0", MEM_OFFSET, 0, {0, 0}},
  };
  for (const auto& rRow : arRows) {
    SCOPED_TRACE(rRow.acLabel);
    Report(rRow.dwWay, rRow.dwCondition);
    Start();
    simcards::Advance(10000);
    EXPECT_EQ(rRow.vExpected, Positions());
    EXPECT_EQ(SSM_OK, SsmStopRecToMem(1));
  }
}

TEST_F(SimRecord, ReportsThatAreSwitchedOffDoNotCome) {
  EXPECT_EQ(SSM_OK, SsmSetEvent(E_PROC_RecordMem, 1, 0, nullptr));
  Start();
  simcards::Advance(9000);
  EXPECT_EQ(Positions_t{}, Positions());
}

TEST_F(SimRecord, CountingPatternStandsInTheRingByteForByte) {
  simcards::PlayCounting(1);
  Start();
  long long k = 0;
  for (const int iPiece : {1, 2047, 700, 2100, 1300, 2048, 3}) {
    simcards::Advance(iPiece);
    for (int i = 0; i < iPiece; i++, k++)
      ASSERT_EQ(simcards::CountingByte(k), vRing[static_cast<std::size_t>(k % RING)]);
    (void)Positions();
  }
  EXPECT_EQ(0, simcards::Overruns());
}

TEST_F(SimRecord, ToneIsItsSineSampleBySample) {
  for (const double dHz : {1004.0, 437.5}) {  // the one repeats each second, the other does not
    SCOPED_TRACE(dHz);
    simcards::PlayTone(1, dHz, -10);
    simcards::PlayTone(0, dHz, -10);  // shares what the other has
    Start();
    const double dAmplitude = 32767.0 * std::pow(10.0, -0.5);
    for (int i = 0; i < 16900; i++) {
      simcards::Advance(1);
      const double dAngle = 6.283185307179586 * std::fmod(dHz * i / 8000.0, 1.0);
      const auto iSample = static_cast<int>(std::lround(dAmplitude * std::sin(dAngle)));
      ASSERT_EQ(simcards::LinearToLaw(SSM_FORMAT_ALAW, iSample), vRing[static_cast<std::size_t>(i) % RING]) << i;
    }
    EXPECT_EQ(SSM_OK, SsmStopRecToMem(1));
  }
}

TEST_F(SimRecord, CountingBeginsAnewWithEachRecording) {
  simcards::PlayCounting(1);
  Start();
  simcards::Advance(1000);
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(1));
  Start();
  simcards::Advance(10);
  EXPECT_EQ(simcards::CountingByte(9), vRing[9]);
}

TEST_F(SimRecord, CountingPatternTellsShiftsApart) {
  for (const long long iShift : {1LL, 255LL, 256LL, 2048LL, 4096LL, 8000LL, 65536LL}) {
    int iEqual = 0;
    for (long long k = 0; k < 1000; k++)
      iEqual += simcards::CountingByte(k) == simcards::CountingByte(k + iShift) ? 1 : 0;
    EXPECT_LT(iEqual, 500) << "shift " << iShift;
  }
}

TEST_F(SimRecord, BytesOverwrittenBeforeTheirReportWasTakenAreCounted) {
  Report(MEM_BYTES, 2048);
  Start();
  simcards::Advance(4096);
  EXPECT_EQ(0, simcards::Overruns());
  EXPECT_EQ(2048U, NextEvent().dwParam);
  simcards::Advance(2048);  // overwrites what the taken report announced
  EXPECT_EQ(0, simcards::Overruns());
  simcards::Advance(1);
  EXPECT_EQ(1, simcards::Overruns());
  simcards::Advance(5000);  // a whole ring and more at once
  EXPECT_EQ(5001, simcards::Overruns());
}

TEST_F(SimRecord, StoppedRingIsNotWrittenAndItsReportsAreGone) {
  Start();
  simcards::Advance(3000);
  simcards::PushEvent(E_CHG_ChState, 1, S_CALL_PICKUPED);
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(1));
  vRing.assign(RING, 0x11);
  simcards::Advance(9000);
  EXPECT_EQ(std::vector<BYTE>(RING, 0x11), vRing);
  EXPECT_EQ("24 ref 1: 1\n", Events());
}

TEST_F(SimRecord, ReportsPushedByATestSurviveTheStop) {
  Start();
  simcards::PushEvent(E_PROC_RecordMem, 1, 77);
  EXPECT_EQ(SSM_OK, SsmStopRecToMem(1));
  EXPECT_EQ("21 ref 1: 77\n", Events());
}

TEST_F(SimRecord, HeardBytesStandInOneRingAndAreReportedAtOnce) {
  std::vector<BYTE> vOther(RING, 0);
  Start();
  EXPECT_EQ(SSM_OK, SsmRecToMem(0, SSM_FORMAT_ALAW, vOther.data(), RING, 0));
  simcards::Hear(1, "abc");
  EXPECT_EQ("21 ref 1: 3\n", Events());
  simcards::Hear(1, std::string(4092, 'x') + "de");  // around the ring
  EXPECT_EQ("21 ref 1: 1\n", Events());
  EXPECT_EQ("ebcx", std::string(vRing.begin(), vRing.begin() + 4));
  EXPECT_EQ("xd", std::string(vRing.end() - 2, vRing.end()));
  EXPECT_EQ(std::vector<BYTE>(RING, 0), vOther);
  simcards::Hear(1, std::string(4097, 'y'));  // one more than the ring holds
  EXPECT_EQ(1, simcards::Overruns());
}

TEST_F(SimRecord, ChannelThatDoesNotRecordHearsNothing) {
  simcards::Hear(1, "abc");
  simcards::Hear(77, "abc");
  EXPECT_EQ("", Events());
}

TEST_F(SimRecord, ChannelsAreRecordedApart) {
  std::vector<BYTE> vOther(RING, 0);
  Start(1, SSM_FORMAT_ULAW);
  EXPECT_EQ(SSM_OK, SsmRecToMem(0, SSM_FORMAT_ALAW, vOther.data(), RING, 0));
  simcards::PlayTone(0, 1000, -6);
  simcards::Advance(2048);
  EXPECT_EQ(std::vector<BYTE>(2048, simcards::ULAW_SILENCE), std::vector<BYTE>(vRing.begin(), vRing.begin() + 2048));
  EXPECT_EQ(simcards::ALAW_SILENCE, vOther[0]);                         // sine of 0
  EXPECT_EQ(simcards::LinearToLaw(SSM_FORMAT_ALAW, 16422), vOther[2]);  // its top, half of full scale
  EXPECT_EQ(simcards::LinearToLaw(SSM_FORMAT_ALAW, -16422), vOther[6]);
  EXPECT_EQ("21 ref 0: 2048\n21 ref 1: 2048\n", Events());
}

}  // namespace
