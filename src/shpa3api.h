// shpa3api: the binary interface of the card maker's library libshpa3.so, as far as this daemon calls it.
// Written from the description of the interface, not taken from the maker's own header: only the operations, records
// and codes that the daemon uses, with sizes and offsets proven below.
// Threads:   SsmWaitForEventA is called on the taker and every other operation on the main thread, SsmGetLastErrMsg on
//            both, at the same time; the library calls LPFNDSTRECRAWDATA and the DTR callback on threads of its own,
//            and only while a bit-stream trace runs.
// Channels:  "nCh" is a driver channel (0 to SsmGetMaxCh() - 1); "nCic" is a circuit number, which only trunks have.
// Errors:    0 is success and any other value failure, unless said otherwise; SsmGetLastErrMsg has the text.
#pragma once

#include <cstddef>
#include <cstdint>

using BYTE = std::uint8_t;
using UCHAR = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using BOOL = std::int32_t;
using LONGLONG = std::int64_t;
using PVOID = void*;
using LPVOID = void*;
using LPSTR = char*;
using PCHAR = char*;
using LPCSTR = const char*;
using LPBYTE = BYTE*;

// One event. The caller of SsmWaitForEventA sets pvBuffer and dwBufferLength; the library may point pvBuffer elsewhere.
struct SSM_EVENT {
  WORD wEventCode = 0;
  WORD wReserved0 = 0;
  int nReference = 0;  // driver channel; -1: no channel; circuit number for E_CHG_SpyState
  DWORD dwParam = 0;   // meaning by event code, see ESsmEvent
  DWORD dwUser = 0;
  DWORD dwSubReason = 0;  // second value of E_RCV_DSTDChannel
  DWORD dwXtraInfo = 0;   // third value of E_RCV_DSTDChannel
  PVOID pvBuffer = nullptr;
  DWORD dwBufferLength = 0;
  DWORD dwDataLength = 0;  // bytes of data at pvBuffer
  DWORD dwEventFlag = 0;
  DWORD dwReserved1 = 0;
  LONGLONG llReserved2 = 0;
};
using PSSM_EVENT = SSM_EVENT*;

// How SsmSetEvent wants events delivered.
struct EVENT_SET_INFO {
  DWORD dwWorkMode = 0;  // EEventWorkMode
  DWORD dwReserved0 = 0;
  LPVOID lpHandlerParam = nullptr;
  DWORD dwOutCondition = 0;  // for E_PROC_RecordMem: bytes between two reports, with MEM_BYTES
  DWORD dwOutParamVal = 0;   // EEventOutParam
  DWORD dwUser = 0;
  DWORD dwReserved1 = 0;
};
using PEVENT_SET_INFO = EVENT_SET_INFO*;

struct SSM_VERSION {
  BYTE ucMajor = 0;
  BYTE ucMinor = 0;
  WORD usInternal = 0;
  WORD usBuild = 0;
  BYTE ucRelease = 0;
  BYTE ucFeature = 0;
};
using PSSM_VERSION = SSM_VERSION*;

// The record behind the last argument of the DTR callback, when the callback reports an event.
struct DST_EVENT {
  DWORD dwEventCode = 0;
  DWORD dwSubReason = 0;
  DWORD dwXtraInfo = 0;
  UCHAR pucBuffer[255] = {};
  DWORD dwDataLength = 0;
};

// Record of an ISDN call, as the card hands it over in pvBuffer; little-endian.
struct ISDN_CALL_INFO {
  DWORD CallRef = 0;     // not used here
  DWORD CallSource = 0;  // 1: the call comes in; any other value: it goes out
  DWORD Cause = 0;       // not used here
  char CallerNumber[32] = {};
  char CallerSubAddr[32] = {};
  char CalledNumber[32] = {};
  char CalledSubAddr[32] = {};
  char ConnectNumber[32] = {};
  char ConnectSubAddr[32] = {};
};

static_assert(sizeof(SSM_EVENT) == 56, "size of the card library's event record");
static_assert(offsetof(SSM_EVENT, nReference) == 4 && offsetof(SSM_EVENT, dwParam) == 8, "event record layout");
static_assert(offsetof(SSM_EVENT, dwUser) == 12 && offsetof(SSM_EVENT, dwSubReason) == 16, "event record layout");
static_assert(offsetof(SSM_EVENT, dwXtraInfo) == 20 && offsetof(SSM_EVENT, pvBuffer) == 24, "event record layout");
static_assert(offsetof(SSM_EVENT, dwBufferLength) == 32 && offsetof(SSM_EVENT, dwDataLength) == 36,
              "event record layout");
static_assert(offsetof(SSM_EVENT, dwEventFlag) == 40 && offsetof(SSM_EVENT, dwReserved1) == 44, "event record layout");
static_assert(offsetof(SSM_EVENT, llReserved2) == 48, "event record layout");
static_assert(sizeof(EVENT_SET_INFO) == 32, "size of the card library's event setting");
static_assert(offsetof(EVENT_SET_INFO, lpHandlerParam) == 8 && offsetof(EVENT_SET_INFO, dwOutCondition) == 16,
              "layout");
static_assert(offsetof(EVENT_SET_INFO, dwOutParamVal) == 20 && offsetof(EVENT_SET_INFO, dwUser) == 24, "layout");
static_assert(sizeof(SSM_VERSION) == 8 && offsetof(SSM_VERSION, usInternal) == 2, "version record layout");
static_assert(offsetof(SSM_VERSION, usBuild) == 4 && offsetof(SSM_VERSION, ucRelease) == 6, "version record layout");
static_assert(offsetof(SSM_VERSION, ucFeature) == 7, "version record layout");
static_assert(sizeof(DST_EVENT) == 272 && offsetof(DST_EVENT, pucBuffer) == 12, "station event record layout");
static_assert(offsetof(DST_EVENT, dwDataLength) == 268, "station event record layout");
static_assert(sizeof(ISDN_CALL_INFO) == 204, "size of the card's ISDN call record");
static_assert(offsetof(ISDN_CALL_INFO, CallerNumber) == 12 && offsetof(ISDN_CALL_INFO, CalledNumber) == 76, "layout");
static_assert(offsetof(ISDN_CALL_INFO, ConnectNumber) == 140, "layout");

// Ways of delivery, EVENT_SET_INFO::dwWorkMode.
enum EEventWorkMode : DWORD {
  NO_EVENT = 0,
  EVENT_POLLING = 1,
  EVENT_CALLBACK = 2,
  EVENT_MESSAGE = 3,
  EVENT_POLLINGA = 4,
  EVENT_CALLBACKA = 5,
};

// Ways of reporting memory recording, EVENT_SET_INFO::dwOutParamVal.
enum EEventOutParam : DWORD { END_HALF_BUFFER = 0, END_BUFFER = 1, MEM_OFFSET = 2, MEM_BYTES = 3 };

// Event codes that are acted on; the library's own list runs from 0 to 124, and all others are ignored.
enum ESsmEvent : WORD {
  E_PROC_Recognize = 0,
  E_CHG_PcmLinkStatus = 7,  // dropped before any channel sees it
  E_CHG_RcvDTMF = 12,       // low 8 bits: the digit as a character
  E_PROC_RecordMem = 21,    // dwParam: write position reached in the recording buffer
  E_CHG_ChState = 24,       // low 16 bits: new channel state
  E_CHG_CIDExBuf = 31,      // caller id has arrived, see SsmGetCallerIdA
  E_CHG_FlashCount = 35,
  E_CHG_ToneAnalyze = 37,  // tone kind; low 8 bits on analogue lines, whole value on station lines
  E_SYS_BargeIn = 46,      // BARGE_IN_SOUND: sound begins; any other value: it ends
  E_SYS_NoSound = 47,
  E_CHG_SpyState = 49,     // low 16 bits: new state, high 16 bits: previous state; nReference is a circuit number
  E_RCV_DSTDChannel = 65,  // message code of the PBX signalling
  MAX_EVENT_SIZE = 125,
};

// D-channel messages, as the card gives them in dwParam of E_RCV_DSTDChannel; dwSubReason is the value. The names are
// ours, the codes the card maker's.
enum EDMsg : DWORD {
  DMSG_OFF_HOOK = 0x0008,
  DMSG_ON_HOOK = 0x000E,
  DMSG_BRI_PROGRESS = 0x006B,
  DMSG_BRI_ALERTING = 0x006E,
  DMSG_BRI_CONNECTED = 0x006F,
  DMSG_BRI_RELEASED = 0x0070,
  DMSG_BRI_ABANDONED = 0x0075,
  DMSG_BRI_REJECTED = 0x0076,
  DMSG_UNNAMED_1001 = 0x1001,  // lamps and keys of unknown meaning; listed because board conditions may refer to them
  DMSG_UNNAMED_1002 = 0x1002,
  DMSG_UNNAMED_1003 = 0x1003,
  DMSG_KEY_DIGIT = 0x1006,  // digit in the low byte
  DMSG_DISPLAY = 0x1008,    // display text in pvBuffer
  DMSG_UNNAMED_100B = 0x100B,
  DMSG_FUNCTION_BUTTON = 0x100E,  // number in the low byte
  DMSG_UNNAMED_100F = 0x100F,
  DMSG_RELEASE_BUTTON = 0x1012,
  DMSG_FEATURE_BUTTON = 0x101A,
  DMSG_SOFT_BUTTON = 0x101E,  // number in the low byte
  DMSG_RING_ON = 0x101F,
  DMSG_RING_OFF = 0x1020,
  DMSG_LINE_BUTTON = 0x1021,
  DMSG_UNNAMED_1025 = 0x1025,
  DMSG_UNNAMED_1028 = 0x1028,
  DMSG_UNNAMED_102A = 0x102A,
  DMSG_UNNAMED_1033 = 0x1033,
  DMSG_AUDIO_CHANGE = 0x104A,   // 0: no audio
  DMSG_RING_OFF_10B8 = 0x10B8,  // each PBX family has ring codes of its own; 0x1305 is none of them
  DMSG_RING_ON_10BA = 0x10BA,
  DMSG_RING_ON_10BB = 0x10BB,
  DMSG_RING_ON_10BC = 0x10BC,
  DMSG_MUTE_LIGHT_OFF = 0x111E,
  DMSG_MUTE_LIGHT_ON = 0x111F,
  DMSG_MUTE_LIGHT_BLINK = 0x1120,  // counts as on
  DMSG_RING_OFF_1304 = 0x1304,
  DMSG_RING_OFF_1306 = 0x1306,
  DMSG_RING_ON_1307 = 0x1307,
  DMSG_RING_OFF_1308 = 0x1308,
  DMSG_RING_OFF_1309 = 0x1309,
  DMSG_RING_OFF_130A = 0x130A,
  DMSG_RING_OFF_130B = 0x130B,
  DMSG_RING_OFF_130C = 0x130C,
  DMSG_CHANGE_LOCAL = 0x8001,  // "<local>|<remote>|<stop-start>" in pvBuffer
};

// Results of SsmGetChType.
enum EChannelType : int { CH_UNKNOWN = -1, CH_ANALOG = 3, CH_ISDN_USR = 7, CH_ISDN_NTW = 8, CH_DST = 12 };

// Channel states, of E_CHG_ChState and SsmGetChState.
enum EChannelState : int {
  S_CALL_STANDBY = 0,
  S_CALL_PICKUPED = 1,
  S_CALL_RINGING = 2,
  S_CALL_TALKING = 3,
  S_CALL_OFFLINE = 8,
  S_CALL_WAIT_REMOTE_PICKUP = 9,
  S_CALL_UNAVAILABLE = 11,
  S_DTRC_ACTIVE = 128,  // internal state of a tap
  S_CALL_SIGNAL_ERROR = 139,
  S_CALL_FRAME_ERROR = 140,
};

// Circuit states, of E_CHG_SpyState.
enum ESpyState : int {
  S_SPY_STANDBY = 0,
  S_SPY_RINGING = 2,
  S_SPY_TALKING = 3,
  S_SPY_UNAVAILABLE = 11,
  S_SPY_RCVPHONUM = 105
};

// Tone kinds, of E_CHG_ToneAnalyze.
enum ETone : int {
  TONE_DIAL = 1,
  TONE_BUSY = 2,
  TONE_RINGBACK = 3,
  TONE_SILENCE_AFTER_RINGBACK = 4,
  TONE_NO_SOUND = 5,
  TONE_VOICE = 6,
};

// Recording formats of SsmRecToMem and SsmRecToFile.
enum ESsmFormat : int { SSM_FORMAT_ALAW = 6, SSM_FORMAT_ULAW = 7 };

// Parts of a value that carries several, such as dwParam.
constexpr DWORD LowByte(DWORD dw) {
  return dw & 0xff;
}
constexpr DWORD LowWord(DWORD dw) {
  return dw & 0xffff;
}
constexpr DWORD HighWord(DWORD dw) {
  return dw >> 16;
}

constexpr DWORD BARGE_IN_SOUND = 1;  // of E_SYS_BargeIn

constexpr int SSM_OK = 0;
constexpr int SSM_EVENT_TIMEOUT = -1;             // of SsmWaitForEventA
constexpr std::size_t EVENT_BUFFER_BYTES = 1024;  // buffer of SsmWaitForEventA, for the data of an event
constexpr std::size_t SSM_ERR_MSG_BYTES = 300;    // buffer of SsmGetLastErrMsg
constexpr std::size_t SPY_NUMBER_BYTES = 64;      // buffer of the SpyGet...Id operations

// Tracing the signalling of a channel, DTRSendRawData2A3.
constexpr DWORD DTR_ALL = 0xFFFFFFFF;    // dwNum
constexpr BYTE DTR_CALLBACK_TYPE = 255;  // ucProcessType: set or clear the callback
constexpr WORD DTR_ON = 1;               // wLen
constexpr WORD DTR_OFF = 0;
// What the callback is given, in its ucProcessType; and in its ucCmd, with data.
enum EProcessType : BYTE { PROCESS_DATA = 0, PROCESS_EVENT = 1 };
enum ECmdType : BYTE { CMD_STATUS = 0x2E, CMD_UP = 0x2F, CMD_DOWN = 0x30, CMD_VOICE = 0x31 };

constexpr std::size_t ISDN_RECORD_BYTES = 204;           // ISDN_CALL_INFO
constexpr std::size_t ISDN_RECORD_EXTENDED_BYTES = 236;  // the record and 32 bytes that nothing reads
constexpr DWORD CALL_SOURCE_INCOMING = 1;  // of a record's CallSource, and of dwSubReason where the phase is text

extern "C" {

// Raw bits of a traced channel. Returns 1.
using LPFNDSTRECRAWDATA = BOOL (*)(int nCh, DWORD dwLen, LPBYTE pucData, WORD tmpDataDiscardedTimes,
                                   WORD tmpWriteToFileFailedTimes);
// Signalling of a traced channel; pDSTEvent is a DST_EVENT when ucProcessType is 1. Returns 1. Travels to
// DTRSendRawData2A3 as LPBYTE.
using DTR_CALLBACK = int (*)(DWORD dwNum, char* szTime, int nCh, BYTE ucProcessType, BYTE ucCmd, WORD wLen,
                             BYTE* pucData, void* pDSTEvent);
// The one function that a library need not have; linked at run time.
using SsmClearR2callToneBuf_FT = int (*)(int nCh);

// -- start and end ----------------------------------------------------------------------------------------------------
int SsmStartCti(LPCSTR lpSsmCfgFileName, LPCSTR lpIndexCfgFileName);
int SsmCloseCti();
int SsmGetDllVersion(PSSM_VERSION pDLLVersion);
int SsmSetLogAttribute(int nLogCreatePeriod, int nLogMaxKeep, int nLogMaxPeriod, LPCSTR pLogFilePath);
void SsmGetLastErrMsg(LPSTR szErrMsg);
int SsmGetMaxUsableBoard();
int SsmGetMaxCh();

// -- channel facts ----------------------------------------------------------------------------------------------------
int SsmGetChHdInfo(int nCh, int* pnBId, int* pnBCh);
int SsmGetChType(int nCh);
int SsmGetChState(int nCh);
int SsmGetLineVoltage(int nCh);

// -- events -----------------------------------------------------------------------------------------------------------
int SsmSetEvent(WORD wEvent, int nReference, BOOL bEnable, PEVENT_SET_INFO pEventSet);
// 0: an event was delivered. SSM_EVENT_TIMEOUT: none came in dwTimeOut milliseconds. Anything else: error.
int SsmWaitForEventA(DWORD dwTimeOut, PSSM_EVENT pEvent);

// -- recording --------------------------------------------------------------------------------------------------------
int SsmRecToMem(int nCh, int nFormat, LPBYTE pBuf, DWORD dwBufSize, DWORD dwReserved);
int SsmStopRecToMem(int nCh);
int SsmRecToFile(int nCh, LPCSTR pszFileName, int nFormat, DWORD dwStartPos, DWORD dwBytes, DWORD dwTime, int nMask);
int SsmStopRecToFile(int nCh);
int SsmStartRecBitFlow(int nCh, LPFNDSTRECRAWDATA pfnRecRawData);
int SsmStopRecBitFlow(int nCh);
int DTRSendRawData2A3(DWORD dwNum, PCHAR pcData, int nCh, BYTE ucProcessType, WORD wLen, LPBYTE pfnCallback);

// -- set-up of a channel ----------------------------------------------------------------------------------------------
int SsmSetRecVolume(int nCh, int nVolume);
int SsmSetRecAGC(int nCh, int bEnable);
int DTRSetMixerVolume(int nCh, int nGroup, int nVolumeIn, int nVolumeOut);
int SsmSetBargeInSens(int nCh, int nSensitivity);

// -- numbers and digits -----------------------------------------------------------------------------------------------
int SsmClearCallerId(int nCh);
int SsmClearRxDtmfBuf(int nCh);
char* SsmGetCallerIdA(int nCh);             // null, or a string owned by the library: read it at once
int SpyGetCallInCh(int nCic);               // driver channel of the incoming direction
int SpyGetCallOutCh(int nCic);              // driver channel of the outgoing direction
int SpyGetCallerId(int nCic, char* pcCid);  // buffers of SPY_NUMBER_BYTES
int SpyGetCalleeId(int nCic, char* pcCid);
int SpyGetConId(int nCic, char* pcCid);
}
