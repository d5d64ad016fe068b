// How the lines are: the summary file for the web side, the message that makes the appliance look again, the
// availability of trunk cards in the database, and the state file of one line on request.
// Channels decide about their health themselves; here it is only passed on. Nothing refreshes the summary by time: it
// is written once when all channels exist, and on each change of health.
#include "recorder.h"

#include <syslog.h>

#include <cstdio>

#include "BaseChannel.h"
#include "bgact.h"
#include "logging.h"
#include "plainfile.h"
#include "recorder_boot.h"
#include "taker.h"

namespace {

// What ChState answers.
enum EChStateResult { CHSTATE_WRITTEN = 0, CHSTATE_NO_LINE = 1, CHSTATE_NO_CHANNEL = 2, CHSTATE_NOT_WRITTEN = 3 };

std::string StatusLine(const BaseChannel& rChannel) {
  return "Line_" + ToStdString(rChannel.iChannel) + ": " + GetLineHealthDescr(rChannel.eLineHealth) + "\n";
}

}  // namespace

void CRecorder::WriteLineStatus() {
  const std::string fn = GetDataDir() + "linestatus.dat";
  const std::string strNewName = fn + ".new";
  hLineStatusFile.reset();  // of an attempt that a full disk cut short
  hLineStatusFile.reset(OpenFileAnew(strNewName));
  if (!hLineStatusFile) return;
  for (const BaseChannel* prChannel : vChannels) {
    if (prChannel->iChannel == -1) continue;
    const std::string strLine = StatusLine(*prChannel);
    if (fwrite(strLine.data(), 1, strLine.size(), hLineStatusFile.get()) < strLine.size()) return;
  }
  if (fclose(hLineStatusFile.release()) != 0) return;
  // A failure leaves the last good file. A folder of that name is none, and refuses.
  if (rename(strNewName.c_str(), fn.c_str()) == 0 || !MakeWay(fn.c_str())) return;
  (void)rename(strNewName.c_str(), fn.c_str());
}

// -- the loop ---------------------------------------------------------------------------------------------------------

void CRecorder::TellSlowEvent(double dTook) const {
  if (prTaker == nullptr) {
    lg(LOG_WARNING, "Event handling took: %.4f s", dTook);
  } else {
    lg(LOG_WARNING, "Event handling took: %.4f s, the loop is %.4f s behind", dTook, prTaker->BehindS());
  }
}

void CRecorder::TellSlowTurn(double dTook) const {
  if (prTaker == nullptr) {
    lg(LOG_WARNING, "Periodic took: %.4f s", dTook);
  } else {
    lg(LOG_WARNING, "Periodic took: %.4f s, the loop is %.4f s behind", dTook, prTaker->BehindS());
  }
}

// Nobody is told of a failure: an onlooker goes by the age of the file.
void CRecorder::WriteLoopFigures() {
  if (prTaker == nullptr) return;
  const TakerFigures rFigures = prTaker->TakeFigures();
  const std::string strName = GetDataDir() + LOOP_FIGURES_FILE;
  StdFile hFile(OpenFileAnew(strName + ".new"));
  if (hFile == nullptr) return;
  (void)fprintf(hFile.get(),
                "loop_behind_seconds %.4f\ntaken_bytes %lld\ntaken_limit_bytes %lld\nlost_bytes %lld\n"
                "overrun_bytes %lld\n",
                rFigures.dBehindS, rFigures.iWaitingBytes, rFigures.iLimitBytes, rFigures.iLostBytes,
                rFigures.iOverrunBytes);
  if (fclose(hFile.release()) == 0) (void)rename((strName + ".new").c_str(), strName.c_str());
}

// -- health -----------------------------------------------------------------------------------------------------------

void CRecorder::RecheckHealth() {
  auto prMsg = std::make_unique<SlowHandlerMsg>();
  prMsg->msg = "sysinfo";
  queueAction(prMsg.release());
}

void CRecorder::NewLineHealth(int iChIx) {
  if (fInitializing) return;
  BaseChannel* prChannel = ChannelAt(iChIx);
  if (!prChannel) return;
  WriteLineStatus();
  // The channel called us, and now asks us for its setting: the question below goes by what the web side says at this
  // moment, and the flag is the channel's like all its settings, although nobody else looks at it.
  prChannel->ReloadSettingsLive();
  // A line that recovers changes the file, but raises no alarm.
  if (prChannel->eLineHealth != LINEHEALTH_OK && prChannel->fCheckLineStatus) RecheckHealth();
}

void CRecorder::NotifyChAvail(int iBoardListIx, int iBoardCh, bool fChAvail) {
  const TBoard* prBoard = prBoot->GetBoard(iBoardListIx);
  if (!prBoard || prBoard->GetCtType() != CT_DTP || iBoardCh != 0) return;
  const std::string strId = prBoard->getId();
  lg(LOG_WARNING, "PRI-line of card %s is %s", strId.c_str(), fChAvail ? "available" : "unavailable");
  StdStringMap rOneRow{{strId + "_Line", fChAvail ? "1" : "0"}};
  prDatabase->SetConfigsPart(rOneRow, "crec_line");
}

int CRecorder::ChState(int iChNr) {
  if (iChNr < 1) return CHSTATE_NO_LINE;  // line numbers count from 1, and any number may come in by the socket
  const auto itDrv = prBoot->rWebToDrvChMap.find(iChNr - 1);
  if (itDrv == prBoot->rWebToDrvChMap.end()) return CHSTATE_NO_LINE;
  BaseChannel* prChannel = ChannelAt(itDrv->second);
  if (!prChannel) return CHSTATE_NO_CHANNEL;
  return prChannel->WriteChState() == 0 ? CHSTATE_WRITTEN : CHSTATE_NOT_WRITTEN;
}
