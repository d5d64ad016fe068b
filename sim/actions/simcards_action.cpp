// Reading of actions. A table for each place of a line has its words, each with the function that reads what follows
// it; the tables stand at the end, after the functions. Words that name a code of the card stand in tables at the
// start.

#include "simcards_action.h"

#include <algorithm>
#include <functional>
#include <vector>

#include "simcards_words.h"

namespace simcards {
namespace {

constexpr int MAX_STATE = 0xFFFF;
constexpr long long MAX_DWORD = 0xFFFFFFFFLL;
constexpr double DEFAULT_TONE_DB = -10.0;
constexpr double DEFAULT_WAIT_S = 30.0;
constexpr double LONGEST_WAIT_S = 86400.0;
constexpr DWORD CALL_SOURCE_OUTGOING = 2;  // one of many: all but CALL_SOURCE_INCOMING go out

const std::vector<Keyword> ON_OFF = {{"on", 1}, {"off", 0}};
const std::vector<Keyword> IN_OUT = {{"in", 1}, {"out", 0}};

const std::vector<Keyword> TONES = {{"dial", TONE_DIAL},         {"busy", TONE_BUSY},
                                    {"ringback", TONE_RINGBACK}, {"quiet", TONE_SILENCE_AFTER_RINGBACK},
                                    {"none", TONE_NO_SOUND},     {"voice", TONE_VOICE}};

const std::vector<Keyword> CHANNEL_STATES = {
    {"standby", S_CALL_STANDBY},         {"offhook", S_CALL_PICKUPED}, {"ringing", S_CALL_RINGING},
    {"talking", S_CALL_TALKING},         {"offline", S_CALL_OFFLINE},  {"waitremote", S_CALL_WAIT_REMOTE_PICKUP},
    {"unavailable", S_CALL_UNAVAILABLE}, {"tap", S_DTRC_ACTIVE},       {"signalerror", S_CALL_SIGNAL_ERROR},
    {"frameerror", S_CALL_FRAME_ERROR}};

const std::vector<Keyword> CIRCUIT_STATES = {{"idle", S_SPY_STANDBY},
                                             {"ring", S_SPY_RINGING},
                                             {"talk", S_SPY_TALKING},
                                             {"numbering", S_SPY_RCVPHONUM},
                                             {"unavailable", S_SPY_UNAVAILABLE}};

const std::vector<Keyword> EVENTS = {
    {"pcmlink", E_CHG_PcmLinkStatus}, {"dtmf", E_CHG_RcvDTMF},        {"recordmem", E_PROC_RecordMem},
    {"chstate", E_CHG_ChState},       {"callerid", E_CHG_CIDExBuf},   {"flash", E_CHG_FlashCount},
    {"tone", E_CHG_ToneAnalyze},      {"bargein", E_SYS_BargeIn},     {"nosound", E_SYS_NoSound},
    {"spystate", E_CHG_SpyState},     {"dchannel", E_RCV_DSTDChannel}};

const std::vector<Keyword> BUTTONS = {{"function", DMSG_FUNCTION_BUTTON},
                                      {"release", DMSG_RELEASE_BUTTON},
                                      {"feature", DMSG_FEATURE_BUTTON},
                                      {"soft", DMSG_SOFT_BUTTON},
                                      {"line", DMSG_LINE_BUTTON}};

const std::vector<Keyword> CALL_PHASES = {{"progress", DMSG_BRI_PROGRESS},   {"alerting", DMSG_BRI_ALERTING},
                                          {"connected", DMSG_BRI_CONNECTED}, {"released", DMSG_BRI_RELEASED},
                                          {"abandoned", DMSG_BRI_ABANDONED}, {"rejected", DMSG_BRI_REJECTED}};

const std::vector<Keyword> WAITS = {{"ready", WAIT_READY},         {"handled", WAIT_HANDLED}, {"idle", WAIT_IDLE},
                                    {"recording", WAIT_RECORDING}, {"stopped", WAIT_STOPPED}, {"played", WAIT_PLAYED},
                                    {"traced", WAIT_TRACED}};

// -- what several actions have ----------------------------------------------------------------------------------------

bool ReadOnOff(WordReader& rWords) {
  return rWords.Choice(ON_OFF) == 1;
}

bool ReadInOut(WordReader& rWords) {
  return rWords.Choice(IN_OUT) == 1;
}

DWORD ReadDword(WordReader& rWords, const char* acWhat) {
  return static_cast<DWORD>(rWords.Int(acWhat, 0, MAX_DWORD));
}

// FIRST or FIRST..LAST
Range ReadRange(WordReader& rWords, const char* acWhat) {
  const std::string strRange = rWords.Text(acWhat);
  const std::size_t iDots = strRange.find("..");
  long long iFirst = 0, iLast = 0;
  const bool fRead = ParseInt(strRange.substr(0, iDots), iFirst) &&
                     (iDots == std::string::npos || ParseInt(strRange.substr(iDots + 2), iLast));
  if (iDots == std::string::npos) iLast = iFirst;
  if (!fRead || iFirst < 0 || iLast < iFirst || iLast > MAX_CHANNEL) {
    rWords.Fail("expected " + std::string(acWhat) + ", found \"" + strRange + '"');
  }
  return {static_cast<int>(iFirst), static_cast<int>(iLast)};
}

Range ReadChannels(WordReader& rWords) {
  return ReadRange(rWords, "a channel or a range such as 0..7");
}

// [param N] [sub N] [xtra N] [text T | hex H], in any order
Message ReadMessage(WordReader& rWords) {
  Message rMessage;
  while (!rWords.AtEnd() && rWords.Error().empty()) {
    switch (rWords.Choice({{"param", 0}, {"sub", 1}, {"xtra", 2}, {"text", 3}, {"hex", 4}})) {
      case 0:
        rMessage.dwParam = ReadDword(rWords, "a number");
        break;
      case 1:
        rMessage.dwSubReason = ReadDword(rWords, "a number");
        break;
      case 2:
        rMessage.dwXtraInfo = ReadDword(rWords, "a number");
        break;
      case 3:
        rMessage.strData = rWords.Text("a text");
        break;
      default:
        rMessage.strData = rWords.HexBytes();
        break;
    }
  }
  return rMessage;
}

// [WORD N]..., in any order; prNumbers are the places of the words' numbers.
using Number = std::optional<std::string>;
void ReadNumbers(WordReader& rWords, const std::vector<Keyword>& vNames, const std::vector<Number*>& prNumbers) {
  while (!rWords.AtEnd() && rWords.Error().empty()) {
    const auto iName = static_cast<std::size_t>(rWords.Choice(vNames));
    *prNumbers[iName] = rWords.Text("a number or \"\"");
  }
}

// -- on channels
// --------------------------------------------------------------------------------------------------------

template <typename A>
A ReadNothing(WordReader& /*rWords*/) {
  return {};
}

actions::Ring ReadRing(WordReader& rWords) {
  return {ReadOnOff(rWords)};
}

actions::CallerId ReadCallerId(WordReader& rWords) {
  return {rWords.Text("a caller id")};
}

actions::Dtmf ReadDtmf(WordReader& rWords) {
  const std::string strDigits = rWords.Text("digits");
  if (strDigits.find_first_not_of("0123456789*#ABCD") != std::string::npos) {
    rWords.Fail("expected digits out of 0 to 9, *, #, A to D, found \"" + strDigits + '"');
  }
  return {strDigits};
}

actions::Tone ReadTone(WordReader& rWords) {
  return {static_cast<DWORD>(rWords.ChoiceOrInt(TONES, 0, 255))};
}

actions::Sound ReadSound(WordReader& rWords) {
  return {ReadOnOff(rWords)};
}

actions::ChannelState ReadChannelState(WordReader& rWords) {
  return {rWords.ChoiceOrInt(CHANNEL_STATES, 0, MAX_STATE)};
}

actions::Voltage ReadVoltage(WordReader& rWords) {
  return {static_cast<int>(rWords.Int("a voltage", -1000, 1000))};
}

// tone HZ [DB]
actions::PlayTone ReadPlayTone(WordReader& rWords) {
  const double dHz = rWords.Real("a frequency from 1 to 4000 Hz", 1, 4000);
  return {dHz, rWords.AtEnd() ? DEFAULT_TONE_DB : rWords.Real("a level from -90 to 0 dB", -90, 0)};
}

// file PATH [loop]
actions::PlayFile ReadPlayFile(WordReader& rWords) {
  const std::string strPath = rWords.Text("a path");
  return {strPath, rWords.Take("loop")};
}

actions::DChannel MakeDChannel(DWORD dwCode, DWORD dwSubReason = 0, const std::string& strData = "") {
  return {{dwCode, dwSubReason, 0, strData}};
}

actions::DChannel ReadDisplay(WordReader& rWords) {
  return MakeDChannel(DMSG_DISPLAY, 0, rWords.Text("the text of the display"));
}

actions::Keys ReadKeys(WordReader& rWords) {
  return {rWords.Text("keys")};
}

// button function N | feature N | soft N | line | release
actions::DChannel ReadButton(WordReader& rWords) {
  const auto dwCode = static_cast<DWORD>(rWords.Choice(BUTTONS));
  const bool fNumbered = dwCode != DMSG_RELEASE_BUTTON && dwCode != DMSG_LINE_BUTTON;
  return MakeDChannel(dwCode, fNumbered ? ReadDword(rWords, "the number of the button") : 0);
}

actions::DChannel ReadAudio(WordReader& rWords) {
  return MakeDChannel(DMSG_AUDIO_CHANGE, ReadDword(rWords, "the audio value"));
}

actions::DChannel ReadMuteLight(WordReader& rWords) {
  return MakeDChannel(ReadOnOff(rWords) ? DMSG_MUTE_LIGHT_ON : DMSG_MUTE_LIGHT_OFF);
}

// bri PHASE in|out [TEXT]
actions::DChannel ReadBri(WordReader& rWords) {
  const auto dwPhase = static_cast<DWORD>(rWords.Choice(CALL_PHASES));
  const bool fIncoming = ReadInOut(rWords);
  return MakeDChannel(dwPhase, fIncoming ? CALL_SOURCE_INCOMING : 0, rWords.AtEnd() ? "" : rWords.Text("a text"));
}

template <std::size_t N>
void PutNumber(WordReader& rWords, const Number& strNumber, char (&acField)[N]) {
  if (!strNumber) return;
  if (strNumber->size() >= N) {
    rWords.Fail("expected a number of at most " + std::to_string(N - 1) + " characters, found \"" + *strNumber + '"');
  }
  (void)strNumber->copy(acField, N - 1);
}

// isdn PHASE in|out [long] [caller N] [called N] [connected N]
actions::DChannel ReadIsdn(WordReader& rWords) {
  const auto dwPhase = static_cast<DWORD>(rWords.Choice(CALL_PHASES));
  const bool fIncoming = ReadInOut(rWords);
  const std::size_t iBytes = rWords.Take("long") ? ISDN_RECORD_EXTENDED_BYTES : ISDN_RECORD_BYTES;
  Number strCaller, strCalled, strConnected;
  ReadNumbers(rWords, {{"caller", 0}, {"called", 1}, {"connected", 2}}, {&strCaller, &strCalled, &strConnected});
  ISDN_CALL_INFO rInfo;
  rInfo.CallSource = fIncoming ? CALL_SOURCE_INCOMING : CALL_SOURCE_OUTGOING;
  PutNumber(rWords, strCaller, rInfo.CallerNumber);
  PutNumber(rWords, strCalled, rInfo.CalledNumber);
  PutNumber(rWords, strConnected, rInfo.ConnectNumber);
  std::string strRecord(reinterpret_cast<const char*>(&rInfo), sizeof rInfo);
  strRecord.resize(iBytes);
  return MakeDChannel(dwPhase, fIncoming ? CALL_SOURCE_INCOMING : 0, strRecord);
}

actions::DChannel ReadDChannel(WordReader& rWords) {
  const DWORD dwCode = ReadDword(rWords, "a message code");
  Message rMessage = ReadMessage(rWords);
  rMessage.dwParam = dwCode;
  return {rMessage};
}

// event CODE|NAME [param N] [sub N] [xtra N] [text T | hex H]
actions::Event ReadEvent(WordReader& rWords) {
  const auto wCode = static_cast<WORD>(rWords.ChoiceOrInt(EVENTS, 0, MAX_EVENT_SIZE - 1));
  return {wCode, ReadMessage(rWords)};
}

// -- on circuits
// --------------------------------------------------------------------------------------------------------

// ring|talk [in|out] [caller N] [callee N] [connected N]
template <ESpyState eState>
actions::CircuitState ReadCall(WordReader& rWords) {
  actions::CircuitState rCall;
  rCall.iState = eState;
  if (rWords.Take("in")) {
    rCall.fIncoming = true;
  } else if (rWords.Take("out")) {
    rCall.fIncoming = false;
  }
  ReadNumbers(rWords, {{"caller", 0}, {"callee", 1}, {"connected", 2}},
              {&rCall.strCaller, &rCall.strCallee, &rCall.strConnected});
  return rCall;
}

actions::CircuitState StateAlone(int iState) {
  actions::CircuitState rState;
  rState.iState = iState;
  return rState;
}

template <ESpyState eState>
actions::CircuitState ReadNoMore(WordReader& /*rWords*/) {
  return StateAlone(eState);
}

actions::CircuitState ReadCircuitState(WordReader& rWords) {
  return StateAlone(rWords.ChoiceOrInt(CIRCUIT_STATES, 0, MAX_STATE));
}

// -- on the whole
// -------------------------------------------------------------------------------------------------------

// fail OPERATION TIMES [result N] [text T]
actions::Fail ReadFail(WordReader& rWords) {
  actions::Fail rFail;
  rFail.strOperation = rWords.Text("the name of an operation");
  rFail.iTimes = static_cast<int>(rWords.Int("how many times", 0, 1000000000));
  rFail.iResult = -1;
  rFail.strText = "simulated failure";
  while (!rWords.AtEnd() && rWords.Error().empty()) {
    if (rWords.Choice({{"result", 0}, {"text", 1}}) == 0) {
      rFail.iResult = static_cast<int>(rWords.Int("a result", -2147483647LL, 2147483647LL));
    } else {
      rFail.strText = rWords.Text("the text of the failure");
    }
  }
  return rFail;
}

actions::Speed ReadSpeed(WordReader& rWords) {
  return {rWords.Real("a speed from 0.01 to 1000", 0.01, 1000)};
}

bool SpeaksOfChannels(EWaitFor eFor) {
  switch (eFor) {
    case WAIT_READY:
    case WAIT_HANDLED:
    case WAIT_IDLE:
      return false;
    case WAIT_RECORDING:
    case WAIT_STOPPED:
    case WAIT_TRACED:
    case WAIT_PLAYED:
      return true;
  }
  return false;
}

// wait CONDITION [CHANNELS] [timeout S]
actions::Wait ReadWait(WordReader& rWords) {
  actions::Wait rWait;
  rWait.eFor = static_cast<EWaitFor>(rWords.Choice(WAITS));
  if (SpeaksOfChannels(rWait.eFor)) rWait.rChannels = ReadChannels(rWords);
  rWait.dTimeoutS = rWords.Take("timeout") ? rWords.Real("a number of seconds", 0, LONGEST_WAIT_S) : DEFAULT_WAIT_S;
  return rWait;
}

actions::Recorded ReadRecorded(WordReader& rWords) {
  return {ReadChannels(rWords)};
}

actions::Directory ReadDirectory(WordReader& rWords) {
  return {rWords.Text("a path")};
}

actions::Print ReadPrint(WordReader& rWords) {
  return {rWords.Rest()};
}

// -- the tables
// ---------------------------------------------------------------------------------------------------------

// A word, and what reads the words behind it.
template <typename A>
struct Row {
  const char* acWord;
  std::function<A(WordReader&)> fnRead;
};

template <typename A>
A ReadOneOf(WordReader& rWords, const std::vector<Row<A>>& vRows) {
  std::vector<Keyword> vKeywords;
  vKeywords.reserve(vRows.size());
  for (const Row<A>& rRow : vRows) vKeywords.push_back({rRow.acWord, static_cast<int>(vKeywords.size())});
  const auto iRow = static_cast<std::size_t>(rWords.Choice(vKeywords));
  return rWords.Error().empty() ? vRows[iRow].fnRead(rWords) : A();
}

const std::vector<Row<actions::OnChannel>> SOUNDS = {
    {"silence", ReadNothing<actions::PlaySilence>},
    {"counting", ReadNothing<actions::PlayCounting>},
    {"tone", ReadPlayTone},
    {"file", ReadPlayFile},
};

actions::OnChannel ReadPlay(WordReader& rWords) {
  return ReadOneOf(rWords, SOUNDS);
}

const std::vector<Row<actions::OnChannel>> CHANNEL_ACTIONS = {
    {"ring", ReadRing},
    {"offhook", ReadNothing<actions::OffHook>},
    {"onhook", ReadNothing<actions::OnHook>},
    {"callerid", ReadCallerId},
    {"dtmf", ReadDtmf},
    {"flash", ReadNothing<actions::Flash>},
    {"tone", ReadTone},
    {"sound", ReadSound},
    {"nosound", ReadNothing<actions::NoSound>},
    {"state", ReadChannelState},
    {"voltage", ReadVoltage},
    {"play", ReadPlay},
    {"display", ReadDisplay},
    {"key", ReadKeys},
    {"button", ReadButton},
    {"audio", ReadAudio},
    {"mutelight", ReadMuteLight},
    {"bri", ReadBri},
    {"isdn", ReadIsdn},
    {"dchannel", ReadDChannel},
    {"event", ReadEvent},
};

const std::vector<Row<actions::OnCircuit>> CIRCUIT_ACTIONS = {
    {"ring", ReadCall<S_SPY_RINGING>},
    {"talk", ReadCall<S_SPY_TALKING>},
    {"idle", ReadNoMore<S_SPY_STANDBY>},
    {"numbering", ReadNoMore<S_SPY_RCVPHONUM>},
    {"unavailable", ReadNoMore<S_SPY_UNAVAILABLE>},
    {"state", ReadCircuitState},
    {"event", ReadEvent},
};

actions::OnChannels ReadOnChannels(WordReader& rWords) {
  const Range rRange = ReadChannels(rWords);
  return {rRange, ReadOneOf(rWords, CHANNEL_ACTIONS)};
}

actions::OnCircuits ReadOnCircuits(WordReader& rWords) {
  const Range rRange = ReadRange(rWords, "a circuit or a range such as 0..29");
  return {rRange, ReadOneOf(rWords, CIRCUIT_ACTIONS)};
}

const std::vector<Row<Action>> ACTIONS = {
    {"ch", ReadOnChannels},
    {"cic", ReadOnCircuits},
    {"event", ReadEvent},
    {"fail", ReadFail},
    {"speed", ReadSpeed},
    {"overruns", ReadNothing<actions::Overruns>},
    {"recorded", ReadRecorded},
    {"cost", ReadNothing<actions::Cost>},
    {"status", ReadNothing<actions::Status>},
    {"wait", ReadWait},
    {"directory", ReadDirectory},
    {"print", ReadPrint},
};

}  // namespace

std::string ParseAction(const std::string& strLine, Action& rAction) {
  WordReader rWords(strLine);
  rAction = ReadOneOf(rWords, ACTIONS);
  rWords.End();
  return rWords.Error();
}

}  // namespace simcards
