// settingstable: every setting that the daemon reads, one row each: rows of the table Configs and files that switch.
// The daemon itself asks for its settings by name wherever it needs them and knows nothing of this table. It is for
// those who set and document them: morvex_ctl and docs/settings.md. A test holds it against the calls in the sources.
// Threads:   any; constants.
//
// A key is written as it stands in Configs, of a board's settings what stands behind "<board>_". Three words stand for
// others: "<n>" for 1 to 10, "<day>" for the English name of a day, "<board>" for a board id.
#pragma once

#include <climits>
#include <string>

enum ESettingPart {
  PART_S,          // "s", read at start
  PART_O,          // "o", read at start and by the order "reconfig"
  PART_ANY,        // asked by name alone, whatever part it stands in
  PART_CREC,       // "crec", read at start
  PART_CREC_LINE,  // "crec_line", which the daemon writes and never reads
  PART_NONE,       // no row: a file
};

enum ESettingScope {
  SCOPE_UNIT,          // <key>
  SCOPE_NODE,          // <key>, in a cluster <serial>-<key>
  SCOPE_BOARD,         // <board>_<key>
  SCOPE_CHANNEL_LIST,  // <board>_<key>, a comma list with an item for each channel of the board, counted from 0
  SCOPE_CHANNEL,       // <board>_<channel>_<key>
  SCOPE_FILE,          // a file of this name in SETTING_FILES_DIR
};

enum ESettingType {
  TYPE_FLAG,    // 0 off, any other number on
  TYPE_ONE,     // 1 on, any other number off
  TYPE_NUMBER,  // from iMin to iMax
  TYPE_WORD,    // one of acWords, to the letter
  TYPE_PBX,     // by acWords, to the letter; a "*" stands for any end. Other texts are allowed and mean nothing more
  TYPE_TEXT,    // any
  TYPE_LIST,    // comma list of any texts
  TYPE_CONDITIONS,  // comma list of codes in hexadecimal, each with a sub-reason behind a point if one counts
  TYPE_WEEKDAYS,    // digits of days
  TYPE_TIME,        // hour:minute
  TYPE_PRESENCE,    // of a file: that it is there
};

enum ESettingHolds {
  HOLDS_FROM_START,      // a change holds from the next start of the daemon
  HOLDS_FROM_RECONFIG,   // or from the order "reconfig"
  HOLDS_AT_ONCE,         // asked anew each time
  HOLDS_AS_DAEMON_SAYS,  // written by the daemon; nobody else has reason to
};

struct SettingValues {
  ESettingType eType;
  int iMin = INT_MIN;
  int iMax = INT_MAX;
  const char* acWords = "";  // comma list
};

struct SettingRow {
  const char* acKey;
  ESettingPart ePart;
  ESettingScope eScope;
  SettingValues rValues;  // of a channel list, those of each item
  const char* acDefault;  // also what stands in for 0 where 0 cannot be set; empty: none
  ESettingHolds eHolds;
  const char* acMeaning;
};

constexpr const char* SETTING_FILES_DIR = "/var/morvex/conf/";

namespace setting {

constexpr SettingValues FLAG{TYPE_FLAG};
constexpr SettingValues ONE{TYPE_ONE};
constexpr SettingValues NUMBER{TYPE_NUMBER};
constexpr SettingValues FROM_ZERO{TYPE_NUMBER, 0};
constexpr SettingValues TEXT{TYPE_TEXT};
constexpr SettingValues LIST{TYPE_LIST};
constexpr SettingValues CONDITIONS{TYPE_CONDITIONS};
constexpr SettingValues WEEKDAYS{TYPE_WEEKDAYS};
constexpr SettingValues TIME{TYPE_TIME};
constexpr SettingValues PRESENCE{TYPE_PRESENCE};
constexpr SettingValues Range(int iMin, int iMax) {
  return {TYPE_NUMBER, iMin, iMax};
}
constexpr SettingValues Words(const char* acWords) {
  return {TYPE_WORD, INT_MIN, INT_MAX, acWords};
}
constexpr SettingValues PbxWords(const char* acWords) {
  return {TYPE_PBX, INT_MIN, INT_MAX, acWords};
}

}  // namespace setting

// Rows of one part and scope stand together: docs/settings.md has a chapter for each.
inline constexpr SettingRow SETTING_ROWS[] = {
    // -- the unit, part "s" -------------------------------------------------------------------------------------------
    {"crec", PART_S, SCOPE_UNIT, setting::ONE, "0", HOLDS_FROM_START, "The master switch: only with 1 are cards used."},
    {"DTMF<n>", PART_S, SCOPE_UNIT, setting::TEXT, "", HOLDS_FROM_START,
     "A code of digits: once they are dialled in a call, what DTMFact<n> says is done. The first code that ends the "
     "digits wins."},
    {"DTMFact<n>", PART_S, SCOPE_UNIT, setting::Words("email,email2,keep,silence,sound,start,stop,delete"), "",
     HOLDS_FROM_START,
     "What the code DTMF<n> does: mail this recording or the one before to the user, keep what is stored on demand, "
     "silence the call and end that, start and stop recording on demand, delete what was recorded."},
    {"EmailRecs", PART_S, SCOPE_UNIT, setting::TEXT, "", HOLDS_FROM_START,
     "With any text, even 0, the post-call script is run for each recording that is filed."},
    {"MaskLastRemoteDigits", PART_S, SCOPE_UNIT, setting::FROM_ZERO, "0", HOLDS_FROM_START,
     "So many last digits of a remote number are X in rows and contacts; log and number lists have it whole."},
    // -- the unit, part "o" -------------------------------------------------------------------------------------------
    {"RecEnc", PART_O, SCOPE_UNIT, setting::Words("alaw,ulaw,gsm,mp3"), "alaw", HOLDS_FROM_START,
     "How recordings are stored. Any other text, also one in capitals, is A-law."},
    {"RecStereo", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "On trunks the two directions stay apart, in two channels of the file."},
    {"Monitoring", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "While a call is recorded a copy for a live listener grows beside its file."},
    {"SilOnDemand", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "Allows to silence a call, by order and by dialled code."},
    {"StoreOnDemandDelay", PART_O, SCOPE_UNIT, setting::FROM_ZERO, "0", HOLDS_FROM_START,
     "Above 0, a call that is stored on demand and that nobody has asked for stays in ActiveCalls for a decision after "
     "its end; with 0 it is deleted."},
    {"RecCheck", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "Each finished recording is handed to the appliance's tool morvex_reccheck."},
    {"ALE", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "Recordings are made in a working area and encrypted into the archive at their end."},
    {"AleDisk", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "With ALE: the working area is /recordings/rectmp on the disk, not the memory disk /dev/shm/morvex."},
    {"CardNotInternal", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "No call counts as internal, so RecLocal is not asked."},
    {"CSTAType", PART_O, SCOPE_UNIT, setting::NUMBER, "0", HOLDS_FROM_START, "Only logged at start."},
    {"TdmLogApi", PART_O, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "The card driver writes its own log into /recordings/log."},
    {"NumberFilterType", PART_O, SCOPE_UNIT, setting::Range(0, 2), "0", HOLDS_FROM_RECONFIG,
     "The number filter: 0 off, 1 only calls with a number of NumberFilters are recorded, 2 those are not. Any other "
     "number works as 1."},
    {"NumberFilters", PART_O, SCOPE_UNIT, setting::LIST, "", HOLDS_FROM_RECONFIG,
     "The numbers of the number filter, each whole; local, remote and connected numbers are looked for."},
    {"CSTATelIPType", PART_O, SCOPE_UNIT, setting::NUMBER, "0", HOLDS_FROM_RECONFIG, "Only logged."},
    {"CSTATelIPFilter", PART_O, SCOPE_UNIT, setting::LIST, "", HOLDS_FROM_RECONFIG,
     "Read and kept; nothing goes by it."},
    {"DelOnDmdType", PART_O, SCOPE_UNIT, setting::Range(0, 3), "0", HOLDS_FROM_RECONFIG,
     "Who may delete a call on demand: 0 nobody, 1 all, 2 and 3 calls with a number of DelOnDmdList."},
    {"DelOnDmdList", PART_O, SCOPE_UNIT, setting::LIST, "", HOLDS_FROM_RECONFIG,
     "Numbers for DelOnDmdType, each whole; # and a line number stand for a line. An empty item, also an empty list, "
     "stands for each call of which one number is missing."},
    {"RecOnDmdType", PART_O, SCOPE_UNIT, setting::Range(0, 3), "0", HOLDS_FROM_RECONFIG,
     "Which calls of trunks are recorded on demand alone: 0 none, 1 all, 2 and 3 those with a number of RecOnDmdList."},
    {"RecOnDmdList", PART_O, SCOPE_UNIT, setting::LIST, "", HOLDS_FROM_RECONFIG,
     "Numbers for RecOnDmdType, each whole. An empty item, also an empty list, stands for each call of which one "
     "number is missing."},
    {"SforceLink", PART_O, SCOPE_UNIT, setting::FROM_ZERO, "0", HOLDS_FROM_RECONFIG,
     "Above 0, the post-call script is run for each recording that is filed."},
    {"srWeekdays", PART_O, SCOPE_UNIT, setting::WEEKDAYS, "", HOLDS_AT_ONCE,
     "The weekly schedule: the days on which calls are recorded. Empty: there is no schedule, and all are."},
    {"sr<day>Start1", PART_O, SCOPE_UNIT, setting::TIME, "", HOLDS_AT_ONCE,
     "When the first window of the day begins, such as srMondayStart1. Empty: the whole day, whatever else is set."},
    {"sr<day>Stop1", PART_O, SCOPE_UNIT, setting::TIME, "24:00", HOLDS_AT_ONCE,
     "When it ends; the call that starts in this minute is not recorded."},
    {"sr<day>Start2", PART_O, SCOPE_UNIT, setting::TIME, "", HOLDS_AT_ONCE,
     "When the second window of the day begins. Empty: there is none."},
    {"sr<day>Stop2", PART_O, SCOPE_UNIT, setting::TIME, "24:00", HOLDS_AT_ONCE, "When it ends."},
    // -- the unit, any part -------------------------------------------------------------------------------------------
    {"RecMinDur", PART_ANY, SCOPE_UNIT, setting::FROM_ZERO, "0", HOLDS_AT_ONCE,
     "Recordings of fewer seconds are deleted."},
    {"NotRecEmptyNum", PART_ANY, SCOPE_UNIT, setting::FLAG, "0", HOLDS_AT_ONCE,
     "Recordings without a remote number are deleted."},
    {"RecLocal", PART_ANY, SCOPE_UNIT, setting::FLAG, "0", HOLDS_AT_ONCE,
     "Internal calls are kept; with 0 they are deleted."},
    {"RecNotOutg", PART_ANY, SCOPE_UNIT, setting::ONE, "0", HOLDS_AT_ONCE, "Outgoing calls are deleted."},
    {"RecNotInc", PART_ANY, SCOPE_UNIT, setting::ONE, "0", HOLDS_AT_ONCE, "Incoming calls are deleted."},
    {"RecOnDemand", PART_ANY, SCOPE_UNIT, setting::FLAG, "0", HOLDS_AT_ONCE,
     "Calls are stored on demand alone, unless the account of a party says otherwise."},
    {"CalcChecksum", PART_ANY, SCOPE_UNIT, setting::Words("md5,sha1,sha256,sha512"), "", HOLDS_AT_ONCE,
     "The checksum that is kept with each recording; with any other text there is none."},
    // -- the unit, part "crec" ----------------------------------------------------------------------------------------
    {"LineNameInFileName", PART_CREC, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "The name of the line becomes part of the names of its recordings."},
    {"R2NumSplit", PART_CREC, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "A caller id of 13 characters on an analogue line is taken as the numbers of both parties."},
    {"Special_Pilot", PART_CREC, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "On station lines a name that the display shows behind a number is kept as the connected party."},
    {"NoWriteIni", PART_CREC, SCOPE_UNIT, setting::ONE, "0", HOLDS_FROM_START,
     "The driver's configuration, ShConfig.ini, is left as it is."},
    {"DebugRepeatRecord", PART_CREC, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "For tests alone: lines have calls without a telephone, one after the other."},
    {"CrecTestSwapLocRem", PART_CREC, SCOPE_UNIT, setting::FLAG, "0", HOLDS_FROM_START,
     "For tests alone: local and remote party change places."},
    {"Prev_<board>_Present", PART_CREC, SCOPE_UNIT, setting::FLAG, "1", HOLDS_FROM_START,
     "With 0 the log of the start counts this board out of the boards of the last run; nothing else goes by it."},
    // -- a board ------------------------------------------------------------------------------------------------------
    {"PBXType", PART_CREC, SCOPE_BOARD,
     setting::PbxWords("Siemens*,Ericsson*,Belgacom,Alcatel*,Aastra 5000,Avaya Mer*,PANASONIC,NEC,ISDN*"),
     "Siemens Hicom/Hipath", HOLDS_FROM_START,
     "Station cards: the PBX, for the card driver and for the rules by which its displays and messages are read. Any "
     "other text is a PBX without rules of its own; empty is the default. Other cards have none."},
    {"TdmStart", PART_CREC, SCOPE_BOARD, setting::Range(0, 3), "0", HOLDS_FROM_START,
     "Station cards: what starts a call: 0 audio on, 1 mute light off, 2 audio on and its end ends the call always, 3 "
     "mute light off and voice."},
    {"AudioDetect", PART_CREC, SCOPE_BOARD, setting::FLAG, "0", HOLDS_FROM_START, "Station cards: voice makes calls."},
    {"AudioSens", PART_CREC, SCOPE_BOARD, setting::NUMBER, "6", HOLDS_FROM_START,
     "Station cards: sensitivity of the card's detector of voice."},
    {"SilenceT", PART_CREC, SCOPE_BOARD, setting::FROM_ZERO, "15", HOLDS_FROM_START,
     "Station cards: seconds of silence that end a call by voice."},
    {"DetectDtmf", PART_CREC, SCOPE_BOARD, setting::FLAG, "0", HOLDS_FROM_START,
     "Station cards: tones in the audio count as dialled digits, as keys always do."},
    {"MissedCalls", PART_CREC, SCOPE_BOARD, setting::FLAG, "0", HOLDS_FROM_START,
     "Station cards: ISDN calls that nobody took are filed, without audio."},
    {"InboundGain", PART_CREC, SCOPE_BOARD, setting::NUMBER, "0", HOLDS_FROM_START,
     "Station cards: volume of the card's mixer for what comes in."},
    {"OutboundGain", PART_CREC, SCOPE_BOARD, setting::NUMBER, "0", HOLDS_FROM_START,
     "Station cards: volume of the card's mixer for what goes out."},
    {"StartCndList", PART_CREC, SCOPE_BOARD, setting::CONDITIONS, "", HOLDS_FROM_START,
     "Station cards: messages that start a call, such as 1304,1100.2."},
    {"StopCndList", PART_CREC, SCOPE_BOARD, setting::CONDITIONS, "", HOLDS_FROM_START,
     "Station cards: messages that take away what voice, light or a message has begun."},
    {"RingOnCndList", PART_CREC, SCOPE_BOARD, setting::CONDITIONS, "", HOLDS_FROM_START,
     "Station cards: messages that tell that the telephone rings."},
    {"RingOffCndList", PART_CREC, SCOPE_BOARD, setting::CONDITIONS, "", HOLDS_FROM_START,
     "Station cards: messages that tell that it no longer rings."},
    {"SwapSides", PART_CREC, SCOPE_BOARD, setting::FLAG, "0", HOLDS_FROM_START,
     "Trunk cards: the tap is wired in reverse, so incoming and outgoing change places."},
    // -- a channel ----------------------------------------------------------------------------------------------------
    {"Trigger", PART_CREC, SCOPE_CHANNEL_LIST, setting::Range(0, 4), "1", HOLDS_FROM_START,
     "Analogue lines: what a call is: 1 off hook, 2 sound, 3 nothing, 4 all the time."},
    {"SilenceTimeOut", PART_CREC, SCOPE_CHANNEL_LIST, setting::FROM_ZERO, "15", HOLDS_FROM_START,
     "Analogue lines: seconds of silence that end a call of Trigger 2."},
    {"OffHookThr", PART_CREC, SCOPE_CHANNEL_LIST, setting::NUMBER, "26", HOLDS_FROM_START,
     "Analogue lines: line voltage that tells on hook from off hook."},
    {"AudioThr", PART_CREC, SCOPE_CHANNEL_LIST, setting::NUMBER, "12", HOLDS_FROM_START,
     "Analogue lines: sensitivity of the card's detector of sound."},
    {"AGC", PART_CREC, SCOPE_CHANNEL_LIST, setting::FLAG, "0", HOLDS_FROM_START,
     "Analogue lines: the card levels the volume by itself."},
    {"Amplify", PART_CREC, SCOPE_CHANNEL_LIST, setting::NUMBER, "0", HOLDS_FROM_START,
     "Analogue lines: volume of the recording, as the card counts it."},
    {"PhoneType", PART_CREC, SCOPE_CHANNEL_LIST, setting::NUMBER, "0", HOLDS_FROM_START,
     "Station cards: the kind of telephone; 1 on a PBX Avaya Mer... has rules of its own. The card driver gets the "
     "text "
     "as it stands."},
    {"RecOnDmd", PART_CREC, SCOPE_CHANNEL_LIST, setting::FLAG, "0", HOLDS_FROM_START,
     "The line records on demand alone; trunks go by RecOnDmdType."},
    {"LongRecordings", PART_CREC, SCOPE_CHANNEL_LIST, setting::FLAG, "0", HOLDS_FROM_START,
     "Long calls are cut into parts."},
    {"LongRecordingsLen", PART_CREC, SCOPE_CHANNEL_LIST, setting::FROM_ZERO, "0", HOLDS_FROM_START,
     "Length of such a part in minutes; 0 cuts each second."},
    {"LoudVoiceDetect", PART_CREC, SCOPE_CHANNEL_LIST, setting::FLAG, "0", HOLDS_FROM_START,
     "Loud talking raises an alarm and marks the call."},
    {"LoudnessThr", PART_CREC, SCOPE_CHANNEL_LIST, setting::NUMBER, "0", HOLDS_FROM_START,
     "What is loud, in dB: 70 is full scale, -30 silence."},
    {"LoudnessLen", PART_CREC, SCOPE_CHANNEL_LIST, setting::FROM_ZERO, "0", HOLDS_FROM_START,
     "Seconds of loud talking before the alarm; 0: none is raised."},
    {"CheckLineStatus", PART_CREC, SCOPE_CHANNEL_LIST, setting::FLAG, "0", HOLDS_AT_ONCE,
     "A line that goes offline or into error raises an alarm."},
    // -- written by the daemon ----------------------------------------------------------------------------------------
    {"CardList", PART_CREC, SCOPE_NODE, setting::LIST, "", HOLDS_AS_DAEMON_SAYS,
     "Boards in the order of their lines, also those that are away and hold the place of their lines."},
    {"CardDriverVersion", PART_CREC, SCOPE_UNIT, setting::TEXT, "", HOLDS_AS_DAEMON_SAYS,
     "Version of the card driver."},
    {"Present", PART_CREC, SCOPE_BOARD, setting::FLAG, "", HOLDS_AS_DAEMON_SAYS,
     "Whether the board was there at the last start."},
    {"MaxChannels", PART_CREC, SCOPE_BOARD, setting::FROM_ZERO, "", HOLDS_AS_DAEMON_SAYS,
     "Lines that the board has; while it is away they keep their numbers by this."},
    {"Model", PART_CREC, SCOPE_BOARD, setting::TEXT, "", HOLDS_AS_DAEMON_SAYS, "Model of the board."},
    {"SN", PART_CREC, SCOPE_BOARD, setting::TEXT, "", HOLDS_AS_DAEMON_SAYS, "Serial number of the board."},
    {"StartCh", PART_CREC, SCOPE_BOARD, setting::FROM_ZERO, "", HOLDS_AS_DAEMON_SAYS,
     "Lines before the first of the board: the number of its first line less 1."},
    {"Channels", PART_CREC, SCOPE_BOARD, setting::FROM_ZERO, "", HOLDS_AS_DAEMON_SAYS,
     "Lines that were usable at the last start."},
    {"LocalNumTime", PART_CREC, SCOPE_BOARD, setting::FROM_ZERO, "", HOLDS_AS_DAEMON_SAYS,
     "When a telephone's own number was last kept; ten minutes later none of the board counts."},
    {"LocalNum", PART_CREC, SCOPE_CHANNEL, setting::TEXT, "", HOLDS_AS_DAEMON_SAYS,
     "A telephone's own number, kept over a restart."},
    {"Line", PART_CREC_LINE, SCOPE_BOARD, setting::FLAG, "", HOLDS_AS_DAEMON_SAYS,
     "Trunk cards: whether the trunk is there."},
    // -- files --------------------------------------------------------------------------------------------------------
    {"crec_disabled", PART_NONE, SCOPE_FILE, setting::PRESENCE, "", HOLDS_FROM_START,
     "While this file is there no cards are used, whatever crec says."},
    {"opt_cluster", PART_NONE, SCOPE_FILE, setting::PRESENCE, "", HOLDS_FROM_START,
     "The unit is a node of a cluster: it waits while /var/morvex/data/node_active is not there, and has a CardList of "
     "its own."},
    {"opt_secure_delete", PART_NONE, SCOPE_FILE, setting::PRESENCE, "", HOLDS_AT_ONCE,
     "What is deleted is overwritten first."},
    {"serial", PART_NONE, SCOPE_FILE, setting::TEXT, "", HOLDS_FROM_START,
     "Its letters and digits are the identifier of the unit."},
};

// The row that a name in Configs, or the path of a file, belongs to, and the board and channel that it names.
struct SettingName {
  const SettingRow* prRow = nullptr;  // null: no setting of the daemon
  std::string strBoard;               // empty where the scope has none
  int iChannel = -1;                  // of SCOPE_CHANNEL
};
SettingName ParseSettingName(const std::string& strParam);
// Whether this may be the id of a board: "Syn" and a serial number.
bool IsBoardId(const std::string& strText);
// Whether a key fits the key of a row, with its words for others filled in: "DTMF7" fits "DTMF<n>".
bool FitsKey(const std::string& strKey, const std::string& strText);
