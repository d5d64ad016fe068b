// Line health: a score for errors and one for being offline, so that a line which flickers is not reported each time.
// A bad state adds SCORE_BAD_STATE at its arrival, an error state each second again, and a second takes SCORE_DECAY
// off. Staying offline thus lowers the offline score; there the state itself holds the health. Offline outranks error.
#include "BaseChannel.h"

#include <syslog.h>

#include <algorithm>

#include "logging.h"

namespace {

constexpr int SCORE_BAD_STATE = 60;
constexpr int SCORE_DECAY = 1;  // a second
constexpr int SCORE_CEILING = 200;
constexpr int SCORE_UNHEALTHY = 150;  // above it the line is ill

struct TextRow {
  int iCode;
  const char* acText;
};

constexpr TextRow STATE_TEXTS[] = {
    {S_CALL_STANDBY, "idle"},          {S_CALL_PICKUPED, "off-hook"}, {S_CALL_RINGING, "ring"},
    {S_CALL_TALKING, "talking"},       {S_CALL_OFFLINE, "offline"},   {S_CALL_WAIT_REMOTE_PICKUP, "wait-answer"},
    {S_CALL_UNAVAILABLE, "unusable"},  {S_DTRC_ACTIVE, "recording"},  {S_CALL_SIGNAL_ERROR, "sign-err"},
    {S_CALL_FRAME_ERROR, "frame-err"},
};

constexpr TextRow TONE_TEXTS[] = {
    {TONE_DIAL, "dial tone"},         {TONE_BUSY, "busy tone"},
    {TONE_RINGBACK, "ringback tone"}, {TONE_SILENCE_AFTER_RINGBACK, "silence after ringback"},
    {TONE_NO_SOUND, "no sound"},      {TONE_VOICE, "voice"},
};

constexpr TextRow HEALTH_TEXTS[] = {
    {LINEHEALTH_OK, "ok"},
    {LINEHEALTH_OFFLINE, "offline"},
    {LINEHEALTH_ERROR, "error"},
};

template <std::size_t N>
const char* TextOf(const TextRow (&rRows)[N], int iCode) {
  for (const TextRow& rRow : rRows) {
    if (rRow.iCode == iCode) return rRow.acText;
  }
  return "";
}

}  // namespace

const char* GetChannelStateDescr(int iState) {
  return TextOf(STATE_TEXTS, iState);
}
const char* GetToneDescr(int iTone) {
  return TextOf(TONE_TEXTS, iTone);
}
const char* GetLineHealthDescr(ELineHealth eHealth) {
  return TextOf(HEALTH_TEXTS, eHealth);
}

bool IsChStateError(int iState) {
  return iState == S_CALL_SIGNAL_ERROR || iState == S_CALL_FRAME_ERROR;
}
bool IsChStateDisconnected(int iState) {
  return iState == S_CALL_OFFLINE || iState == S_CALL_UNAVAILABLE;
}

void BaseChannel::NewChannelState() {
  if (IsChStateDisconnected(iLastChannelState)) {
    iLineOfflineCalc += SCORE_BAD_STATE;
  } else if (IsChStateError(iLastChannelState)) {
    iLineErrCalc += SCORE_BAD_STATE;
  }
  FinalCalcChannelState();
}

void BaseChannel::PeriodicChannelState() {
  if (IsChStateError(iLastChannelState)) {
    iLineErrCalc += SCORE_BAD_STATE;
  } else {
    iLineErrCalc -= SCORE_DECAY;
  }
  iLineOfflineCalc -= SCORE_DECAY;
  FinalCalcChannelState();
}

void BaseChannel::FinalCalcChannelState() {
  iLineErrCalc = std::clamp(iLineErrCalc, 0, SCORE_CEILING);
  iLineOfflineCalc = std::clamp(iLineOfflineCalc, 0, SCORE_CEILING);

  ELineHealth eHealth = LINEHEALTH_OK;
  if (iLineErrCalc > SCORE_UNHEALTHY) eHealth = LINEHEALTH_ERROR;
  if (iLineOfflineCalc > SCORE_UNHEALTHY) eHealth = LINEHEALTH_OFFLINE;
  if (IsChStateDisconnected(iLastChannelState)) eHealth = LINEHEALTH_OFFLINE;
  if (eHealth == eLineHealth) return;
  eLineHealth = eHealth;
  NewLineHealth();
}

void BaseChannel::NewLineHealth() {
  if (iChannel == -1) return;  // a driver channel without a line: nobody looks at it
  lg(LOG_NOTICE, "[%d] Line health: %s", iChannel, GetLineHealthDescr(eLineHealth));
  prRecorder->NewLineHealth(iChIx);
}
