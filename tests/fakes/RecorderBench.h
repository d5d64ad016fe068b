// RecorderBench: a boot object and a recorder over the fake database and the simulated cards: the fixture of the tests
// of the recorder. Boards are put into the list by hand; a test that wants channels adds them by hand too, or runs
// InitRecorder.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "FakeDatabase.h"
#include "LogSink.h"
#include "OpenChannel.h"
#include "recorder.h"
#include "recorder_boot.h"
#include "simcards.h"

class RecorderBench : public ::testing::Test {
 protected:
  RecorderBench() {
    auto prOwned = std::make_unique<FakeDatabase>();
    prDb = prOwned.get();
    rBoot.prDatabase = std::move(prOwned);
    rRecorder.prBoot = &rBoot;
    rRecorder.prDatabase = prDb;
    simcards::Reset();
    Forget();
  }

  // Drops log lines, database calls and driver calls so far, so that a test compares only what its own step does.
  void Forget() {
    (void)logsink::Take();
    (void)prDb->TakeCalls();
    (void)simcards::TakeCalls();
  }

  static TBoard Present(const std::string& strModel, const std::string& strSerial, int iMaxCh, int iBoardId = -1) {
    TBoard rBoard;
    rBoard.fPresent = true;
    rBoard.strModel = strModel;
    rBoard.strSerial = strSerial;
    rBoard.iMaxCh = iMaxCh;
    rBoard.iWebMaxCh = rBoard.GetCtType() == CT_DTP ? iMaxCh / 2 : iMaxCh;
    rBoard.iBoardId = iBoardId;
    return rBoard;
  }

  static TBoard Away(const std::string& strId, int iWebMaxCh) {
    TBoard rBoard;
    rBoard.strId = strId;
    rBoard.iWebMaxCh = iWebMaxCh;
    return rBoard;
  }

  // A plain channel at the end of the table, with its index as driver channel. No Init: it asks for no settings.
  OpenChannel<BaseChannel>& AddChannel(int iChannel) {
    auto* prChannel = new OpenChannel<BaseChannel>;  // owned by the recorder
    prChannel->prRecorder = &rRecorder;
    prChannel->iChIx = prChannel->iDrvCh = static_cast<int>(rRecorder.vChannels.size());
    prChannel->iChannel = iChannel;
    rRecorder.vChannels.push_back(prChannel);
    return *prChannel;
  }

  TRecorderBoot rBoot;
  CRecorder rRecorder;  // after rBoot: channels go before the database
  FakeDatabase* prDb;   // owned by rBoot
};
