// The table of actions comes first in reading order at the end of the file: each word, where it may stand, and the
// function that reads what follows it. Names of codes stand in tables of their own.

#include "simcards_action.h"

#include "simcards_words.h"

namespace simcards {
namespace {

constexpr int MAX_CHANNEL = 100000;
constexpr int MAX_STATE = 0xFFFF;
constexpr long long MAX_DWORD = 0xFFFFFFFFLL;
constexpr double DEFAULT_TONE_DB = -10.0;
constexpr double DEFAULT_WAIT_S = 30.0;
constexpr double LONGEST_WAIT_S = 86400.0;

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

DWORD Dword(WordReader& rWords, const char* acWhat) {
  return static_cast<DWORD>(rWords.Int(acWhat, 0, MAX_DWORD));
}

// FIRST or FIRST..LAST
void ReadRange(WordReader& rWords, const char* acWhat, Command& rCommand) {
  const std::string strRange = rWords.Text(acWhat);
  const std::size_t iDots = strRange.find("..");
  long long iFirst = 0, iLast = 0;
  const bool fRead = ParseInt(strRange.substr(0, iDots), iFirst) &&
                     (iDots == std::string::npos || ParseInt(strRange.substr(iDots + 2), iLast));
  if (iDots == std::string::npos) iLast = iFirst;
  if (!fRead || iFirst < 0 || iLast < iFirst || iLast > MAX_CHANNEL) {
    rWords.Fail("expected " + std::string(acWhat) + ", found \"" + strRange + '"');
  }
  rCommand.iFirst = static_cast<int>(iFirst);
  rCommand.iLast = static_cast<int>(iLast);
}

// [param N] [sub N] [xtra N] [text T | hex H], in any order
void ReadMessageParts(WordReader& rWords, Message& rMessage) {
  while (!rWords.AtEnd() && rWords.Error().empty()) {
    switch (rWords.Choice({{"param", 0}, {"sub", 1}, {"xtra", 2}, {"text", 3}, {"hex", 4}})) {
      case 0:
        rMessage.dwParam = Dword(rWords, "a number");
        break;
      case 1:
        rMessage.dwSubReason = Dword(rWords, "a number");
        break;
      case 2:
        rMessage.dwXtraInfo = Dword(rWords, "a number");
        break;
      case 3:
        rMessage.strData = rWords.Text("a text");
        break;
      default:
        rMessage.strData = rWords.HexBytes();
        break;
    }
  }
}

void ReadNumbers(WordReader& rWords, const std::vector<Keyword>& vNames, Command& rCommand) {
  while (!rWords.AtEnd() && rWords.Error().empty()) {
    const int iName = rWords.Choice(vNames);
    rCommand.rNumbers[vNames[static_cast<std::size_t>(iName)].acWord] = rWords.Text("a number or \"\"");
  }
}

void ReadDirection(WordReader& rWords, Command& rCommand) {
  if (rWords.Take("in")) rCommand.iIncoming = 1;
  if (rCommand.iIncoming < 0 && rWords.Take("out")) rCommand.iIncoming = 0;
}

void DChannel(Command& rCommand, DWORD dwCode, DWORD dwSubReason = 0, const std::string& strData = "") {
  rCommand.eCommand = CMD_DCHANNEL;
  rCommand.rMessage.dwParam = dwCode;
  rCommand.rMessage.dwSubReason = dwSubReason;
  rCommand.rMessage.strData = strData;
}

// -- the record of an ISDN call, as the card hands it over ----------------------------------------------------

constexpr DWORD CALL_SOURCE_OUTGOING = 2;  // one of many: all but CALL_SOURCE_INCOMING go out

template <std::size_t N>
void PutNumber(WordReader& rWords, char (&acField)[N], const std::string& strNumber) {
  if (strNumber.size() >= N)
    rWords.Fail("expected a number of at most " + std::to_string(N - 1) + " characters, found \"" + strNumber + '"');
  (void)strNumber.copy(acField, N - 1);
}

// isdn PHASE in|out [long] [caller N] [called N] [connected N]
void ReadIsdn(WordReader& rWords, Command& rCommand) {
  const auto dwPhase = static_cast<DWORD>(rWords.Choice(CALL_PHASES));
  const bool fIncoming = rWords.Choice(IN_OUT) == 1;
  const std::size_t iBytes = rWords.Take("long") ? ISDN_RECORD_EXTENDED_BYTES : ISDN_RECORD_BYTES;
  ReadNumbers(rWords, {{"caller", 0}, {"called", 1}, {"connected", 2}}, rCommand);
  ISDN_CALL_INFO rInfo;
  rInfo.CallSource = fIncoming ? CALL_SOURCE_INCOMING : CALL_SOURCE_OUTGOING;
  PutNumber(rWords, rInfo.CallerNumber, rCommand.rNumbers["caller"]);
  PutNumber(rWords, rInfo.CalledNumber, rCommand.rNumbers["called"]);
  PutNumber(rWords, rInfo.ConnectNumber, rCommand.rNumbers["connected"]);
  std::string strRecord(reinterpret_cast<const char*>(&rInfo), sizeof rInfo);
  strRecord.resize(iBytes);
  DChannel(rCommand, dwPhase, fIncoming ? CALL_SOURCE_INCOMING : 0, strRecord);
}

// bri PHASE in|out [TEXT]
void ReadBri(WordReader& rWords, Command& rCommand) {
  const auto dwPhase = static_cast<DWORD>(rWords.Choice(CALL_PHASES));
  const auto dwIncoming = static_cast<DWORD>(rWords.Choice(IN_OUT));
  DChannel(rCommand, dwPhase, dwIncoming, rWords.AtEnd() ? "" : rWords.Text("a text"));
}

// -- the rest, one function an action -------------------------------------------------------------------------

void ReadCallerId(WordReader& rWords, Command& rCommand) {
  rCommand.strText = rWords.Text("a caller id");
}

void ReadDigits(WordReader& rWords, Command& rCommand) {
  rCommand.strText = rWords.Text("digits");
  if (rCommand.strText.find_first_not_of("0123456789*#ABCD") != std::string::npos) {
    rWords.Fail("expected digits out of 0 to 9, *, #, A to D, found \"" + rCommand.strText + '"');
  }
}

void ReadOnOff(WordReader& rWords, Command& rCommand) {
  rCommand.iValue = rWords.Choice(ON_OFF);
}

void ReadTone(WordReader& rWords, Command& rCommand) {
  rCommand.iValue = rWords.ChoiceOrInt(TONES, 0, 255);
}

void ReadState(WordReader& rWords, Command& rCommand) {
  rCommand.iValue = rWords.ChoiceOrInt(CHANNEL_STATES, 0, MAX_STATE);
}

void ReadVoltage(WordReader& rWords, Command& rCommand) {
  rCommand.iValue = static_cast<int>(rWords.Int("a voltage", -1000, 1000));
}

// play silence | counting | tone HZ [DB] | file PATH [loop]
void ReadPlay(WordReader& rWords, Command& rCommand) {
  rCommand.eCommand = static_cast<ECommand>(rWords.Choice({{"silence", CMD_PLAY_SILENCE},
                                                           {"counting", CMD_PLAY_COUNTING},
                                                           {"tone", CMD_PLAY_TONE},
                                                           {"file", CMD_PLAY_FILE}}));
  if (rCommand.eCommand == CMD_PLAY_TONE) {
    rCommand.dValue = rWords.Real("a frequency from 1 to 4000 Hz", 1, 4000);
    rCommand.dLevel = rWords.AtEnd() ? DEFAULT_TONE_DB : rWords.Real("a level from -90 to 0 dB", -90, 0);
  } else if (rCommand.eCommand == CMD_PLAY_FILE) {
    rCommand.strText = rWords.Text("a path");
    rCommand.iValue = rWords.Take("loop") ? 1 : 0;
  }
}

void ReadDisplay(WordReader& rWords, Command& rCommand) {
  DChannel(rCommand, DMSG_DISPLAY, 0, rWords.Text("the text of the display"));
}

void ReadKeys(WordReader& rWords, Command& rCommand) {
  rCommand.strText = rWords.Text("keys");
  rCommand.rMessage.dwParam = DMSG_KEY_DIGIT;
}

// button function N | feature N | soft N | line | release
void ReadButton(WordReader& rWords, Command& rCommand) {
  const auto dwCode = static_cast<DWORD>(rWords.Choice(BUTTONS));
  const bool fNumbered = dwCode != DMSG_RELEASE_BUTTON && dwCode != DMSG_LINE_BUTTON;
  DChannel(rCommand, dwCode, fNumbered ? Dword(rWords, "the number of the button") : 0);
}

void ReadAudio(WordReader& rWords, Command& rCommand) {
  DChannel(rCommand, DMSG_AUDIO_CHANGE, Dword(rWords, "the audio value"));
}

void ReadMuteLight(WordReader& rWords, Command& rCommand) {
  DChannel(rCommand, rWords.Choice(ON_OFF) == 1 ? DMSG_MUTE_LIGHT_ON : DMSG_MUTE_LIGHT_OFF);
}

void ReadDChannel(WordReader& rWords, Command& rCommand) {
  const DWORD dwCode = Dword(rWords, "a message code");
  ReadMessageParts(rWords, rCommand.rMessage);
  rCommand.rMessage.dwParam = dwCode;
}

// event CODE|NAME [param N] [sub N] [xtra N] [text T | hex H]
void ReadEvent(WordReader& rWords, Command& rCommand) {
  rCommand.iValue = rWords.ChoiceOrInt(EVENTS, 0, MAX_EVENT_SIZE - 1);
  ReadMessageParts(rWords, rCommand.rMessage);
}

void ReadNothing(WordReader& /*rWords*/, Command& /*rCommand*/) {}

// ring|talk [in|out] [caller N] [callee N] [connected N]
void ReadTrunkCall(WordReader& rWords, Command& rCommand) {
  ReadDirection(rWords, rCommand);
  ReadNumbers(rWords, {{"caller", 0}, {"callee", 1}, {"connected", 2}}, rCommand);
}

void ReadTrunkState(WordReader& rWords, Command& rCommand) {
  rCommand.iValue = rWords.ChoiceOrInt(CIRCUIT_STATES, 0, MAX_STATE);
}

// fail OPERATION TIMES [result N] [text T]
void ReadFail(WordReader& rWords, Command& rCommand) {
  rCommand.strText = rWords.Text("the name of an operation");
  rCommand.iCount = static_cast<int>(rWords.Int("how many times", 0, 1000000000));
  rCommand.iValue = -1;
  rCommand.strText2 = "simulated failure";
  while (!rWords.AtEnd() && rWords.Error().empty()) {
    if (rWords.Choice({{"result", 0}, {"text", 1}}) == 0) {
      rCommand.iValue = static_cast<int>(rWords.Int("a result", -2147483647LL, 2147483647LL));
    } else {
      rCommand.strText2 = rWords.Text("the text of the failure");
    }
  }
}

void ReadSpeed(WordReader& rWords, Command& rCommand) {
  rCommand.dValue = rWords.Real("a speed from 0.01 to 1000", 0.01, 1000);
}

// wait CONDITION [CHANNELS] [timeout S]
void ReadWait(WordReader& rWords, Command& rCommand) {
  rCommand.iValue = rWords.Choice(WAITS);
  rCommand.dValue = DEFAULT_WAIT_S;
  if (rCommand.iValue >= WAIT_RECORDING) {
    rCommand.eTarget = TARGET_CHANNELS;
    ReadRange(rWords, "a channel or a range such as 0..7", rCommand);
  }
  if (rWords.Take("timeout")) rCommand.dValue = rWords.Real("a number of seconds", 0, LONGEST_WAIT_S);
}

void ReadDirectory(WordReader& rWords, Command& rCommand) {
  rCommand.strText = rWords.Text("a path");
}

void ReadPrint(WordReader& rWords, Command& rCommand) {
  rCommand.strText = rWords.Rest();
}

struct Action {
  const char* acWord;
  ECommand eCommand;
  int iValue;
  void (*Read)(WordReader&, Command&);
};

const std::vector<Action> CHANNEL_ACTIONS = {
    {"ring", CMD_RING, 0, ReadOnOff},
    {"offhook", CMD_OFF_HOOK, 0, ReadNothing},
    {"onhook", CMD_ON_HOOK, 0, ReadNothing},
    {"callerid", CMD_CALLER_ID, 0, ReadCallerId},
    {"dtmf", CMD_DTMF, 0, ReadDigits},
    {"flash", CMD_FLASH, 0, ReadNothing},
    {"tone", CMD_TONE, 0, ReadTone},
    {"sound", CMD_SOUND, 0, ReadOnOff},
    {"nosound", CMD_NO_SOUND, 0, ReadNothing},
    {"state", CMD_STATE, 0, ReadState},
    {"voltage", CMD_VOLTAGE, 0, ReadVoltage},
    {"play", CMD_PLAY_SILENCE, 0, ReadPlay},
    {"display", CMD_DCHANNEL, 0, ReadDisplay},
    {"key", CMD_KEYS, 0, ReadKeys},
    {"button", CMD_DCHANNEL, 0, ReadButton},
    {"audio", CMD_DCHANNEL, 0, ReadAudio},
    {"mutelight", CMD_DCHANNEL, 0, ReadMuteLight},
    {"bri", CMD_DCHANNEL, 0, ReadBri},
    {"isdn", CMD_DCHANNEL, 0, ReadIsdn},
    {"dchannel", CMD_DCHANNEL, 0, ReadDChannel},
    {"event", CMD_EVENT, 0, ReadEvent},
};

const std::vector<Action> CIRCUIT_ACTIONS = {
    {"ring", CMD_TRUNK, S_SPY_RINGING, ReadTrunkCall},
    {"talk", CMD_TRUNK, S_SPY_TALKING, ReadTrunkCall},
    {"idle", CMD_TRUNK, S_SPY_STANDBY, ReadNothing},
    {"numbering", CMD_TRUNK, S_SPY_RCVPHONUM, ReadNothing},
    {"unavailable", CMD_TRUNK, S_SPY_UNAVAILABLE, ReadNothing},
    {"state", CMD_TRUNK, 0, ReadTrunkState},
    {"event", CMD_EVENT, 0, ReadEvent},
};

const std::vector<Action> GENERAL_ACTIONS = {
    {"event", CMD_EVENT, 0, ReadEvent},
    {"fail", CMD_FAIL, 0, ReadFail},
    {"speed", CMD_SPEED, 0, ReadSpeed},
    {"overruns", CMD_OVERRUNS, 0, ReadNothing},
    {"status", CMD_STATUS, 0, ReadNothing},
    {"wait", CMD_WAIT, 0, ReadWait},
    {"directory", CMD_DIRECTORY, 0, ReadDirectory},
    {"print", CMD_PRINT, 0, ReadPrint},
};

void ReadAction(WordReader& rWords, const std::vector<Action>& vActions, int iAction, Command& rCommand) {
  const Action& rAction = vActions[static_cast<std::size_t>(iAction)];
  rCommand.eCommand = rAction.eCommand;
  rCommand.iValue = rAction.iValue;
  if (rWords.Error().empty()) rAction.Read(rWords, rCommand);
}

std::vector<Keyword> WordsOf(const std::vector<Action>& vActions) {
  std::vector<Keyword> vWords;
  vWords.reserve(vActions.size());
  for (const Action& rAction : vActions) vWords.push_back({rAction.acWord, static_cast<int>(vWords.size())});
  return vWords;
}

}  // namespace

std::string ParseCommand(const std::string& strLine, Command& rCommand) {
  rCommand = Command();
  WordReader rWords(strLine);
  const int iGeneral = static_cast<int>(GENERAL_ACTIONS.size());
  std::vector<Keyword> vFirst = {{"ch", iGeneral}, {"cic", iGeneral + 1}};
  for (const Keyword& rKeyword : WordsOf(GENERAL_ACTIONS)) vFirst.push_back(rKeyword);
  const int iFirst = rWords.Choice(vFirst);
  if (iFirst < iGeneral) {
    ReadAction(rWords, GENERAL_ACTIONS, iFirst, rCommand);
  } else if (iFirst == iGeneral) {
    rCommand.eTarget = TARGET_CHANNELS;
    ReadRange(rWords, "a channel or a range such as 0..7", rCommand);
    ReadAction(rWords, CHANNEL_ACTIONS, rWords.Choice(WordsOf(CHANNEL_ACTIONS)), rCommand);
  } else {
    rCommand.eTarget = TARGET_CIRCUITS;
    ReadRange(rWords, "a circuit or a range such as 0..29", rCommand);
    ReadAction(rWords, CIRCUIT_ACTIONS, rWords.Choice(WordsOf(CIRCUIT_ACTIONS)), rCommand);
  }
  rWords.End();
  return rWords.Error();
}

}  // namespace simcards
