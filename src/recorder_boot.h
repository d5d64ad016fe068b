// recorder_boot: settings, boards and numbering for one start try, and the queue of the main thread while it lasts.
// Files:     recorder_boot.cpp its life, recorder_settings.cpp maps and lookups, recorder_boards.cpp cards and numbers,
//            recorder_conditions.cpp the condition lists, recorder_drvconfig.cpp the driver's files. The main loop
//            stands above them all, in morvex_crec_loop.cpp: there it meets the recorder and the control socket.
// Threads:   main, except queue (any).
// Ownership: owns the database and the rings of channels that are gone. Of the actions in its queue the end of the main
//            loop deletes those that are left (emptyQueue); the destructor deletes none.
// Settings:  rows of the table Configs, one map a part. A key lives in one part only, and its reader names the map; a
//            missing key reads as the empty text or 0. Texts become numbers by strtol, so "12x" is 12.
// Channels:  driver channel: index of vChannels, dense over the present cards. Web channel: counts from 0 and keeps
//            room for absent cards. Line number (iChannel): web channel plus 1. Circuit number: trunks only.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fstring.h"
#include "idatabase.h"
#include "irecorder.h"
#include "mainqueue.h"
#include "recorder_boards.h"

enum ECfgLoadMethod {
  CFG_LIVE_LOAD = 0,    // ask the database now
  CFG_CACHED_LOAD = 1,  // use the copy in memory
};

class TRecorderBoot : public MainQueue {
 public:
  TRecorderBoot() = default;
  ~TRecorderBoot();
  TRecorderBoot(const TRecorderBoot&) = delete;
  TRecorderBoot& operator=(const TRecorderBoot&) = delete;

  // -- one start try --------------------------------------------------------------------------------------------------
  // Opens the database and loads the settings. False: recording is switched off, by file or in the database; a database
  // that cannot be read counts as switched off.
  bool Init();
  // The second half of Init, on the database at hand: fills the three maps and answers by the master switch.
  bool LoadSettings();
  // Gives the cards 10 seconds to come up, asks the card maker's tool and fills vrDetectedBoards. The process stays in
  // the tool's directory afterwards.
  void DetectBoards();
  // Fills vrDetectedBoards from the lists; cards of an unknown model are left out.
  void TakeDetected(const ToolConfig& rFound);
  // Merges what was detected with the remembered list into vrBoardList, and gives all channels their numbers.
  void CreateBoardList();
  // Merges the driver's configuration into ShConfig.ini and empties ShIndex.ini, unless NoWriteIni is 1.
  void WriteConfig();
  void PrepareConfig();  // detect, list, write
  // Starts the driver; 0 when it runs, 1 when it did not start in 20 seconds or the process is to stop.
  int InitBoards();
  // Counts the usable channels of the running driver and puts the final state of all boards into rNewConfigs.
  void AnalyseStartedState();
  // Runs the recorder until it is told to stop. 1 when InitRecorder failed, else 0.
  int RecorderUseBoardsLoop();
  // Looks for the one function that a card library need not have; silent when the library cannot be opened by name.
  void LinkOptionalFunctions();
  void UnlinkOptionalFunctions();

  // -- settings -------------------------------------------------------------------------------------------------------
  std::string GetCrecSetting(const std::string& strParam, ECfgLoadMethod cfgLoadMethod);
  // Writes one row at once; rConfigs is not changed, so a cached read sees it only after a restart.
  void SetCrecSetting(const std::string& strParam, const std::string& strValue);
  std::string GetSysSetting(const std::string& strParam);
  std::string GetOSetting(const std::string& strParam);
  // The Param lookups abort on a board index out of range, which only a bug or a channel without board can bring; the
  // Data ones read it as empty or 0 and write nothing. The Channel Params are comma lists with one item a channel: the
  // text of an item that is not there is empty. The Int lookups put a built-in value in the place of 0.
  std::string GetChannelParamStr(int iBoardCh, int iBoardListIx, const std::string& strParam,
                                 ECfgLoadMethod cfgLoadMethod);
  int GetChannelParamInt(int iBoardCh, int iBoardListIx, const std::string& strParam, ECfgLoadMethod cfgLoadMethod);
  std::string GetBoardParamStr(int iBoardListIx, const std::string& strParam);
  int GetBoardParamInt(int iBoardListIx, const std::string& strParam);
  int GetBoardDataInt(int iBoardListIx, const std::string& strParam);
  void SetBoardDataInt(int iBoardListIx, const std::string& strParam, int iValue);
  std::string GetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam);
  void SetChannelDataStr(int iBoardCh, int iBoardListIx, const std::string& strParam, const std::string& strValue);
  void ReloadDbConfig();  // rConfigsO alone
  void WriteNewConfigsToDB();
  void LoadBoardSettings();  // the conditions of all boards, absent ones too

  // -- boards ---------------------------------------------------------------------------------------------------------
  TBoard* GetBoard(int iBoardListIx);  // null for an index out of range
  // The first board with this number, else -1. Absent boards carry -1, so -1 may find one of them.
  int GetBoardListIxForBoardId(int iBoardId) const;
  ECardType GetBoardCardType(int iBoardListIx);
  // False for an index out of range.
  bool IsBoardStartCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardStopCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardRingOnCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);
  bool IsBoardRingOffCondition(int iBoardListIx, unsigned int dwEvent, unsigned int dwSubReason);

  StdStringMap rConfigs;                              // part "crec", as read at start
  StdStringMap rConfigsO;                             // part "o", reloadable
  StdStringMap rConfigsSys;                           // part "s", as read at start
  StdStringMap rNewConfigs;                           // what the recorder reports back, into "crec"
  std::vector<TBoard> vrDetectedBoards;               // what the tool found, in its order
  std::vector<TBoard> vrBoardList;                    // present and remembered boards; iBoardListIx counts here
  std::map<int, int> rDrvToWebChMap, rWebToDrvChMap;  // driver channel <-> web channel
  std::map<int, int> rCicToAppChMap, rAppToCicChMap;  // circuit <-> driver channel, here "App"
  int iTotalDrvMaxCh = 0;
  int iTotalWebMaxCh = 0;
  std::string strCardList;  // board ids in list order, comma-separated
  std::unique_ptr<IDatabase> prDatabase;
  // Ring buffers that the card may still write, of channels that are gone. They go with this object, which outlives
  // SsmCloseCti.
  std::vector<std::unique_ptr<BYTE[]>> vKeptRings;

 private:
  const TBoard& NeedBoard(int iBoardListIx);  // aborts for an index out of range
  void MergeRememberedBoards();
  void DropAbsentTail();
  void AppendNewBoards();
  void LoadPbxSettings();
  void NumberBoards();
  void MapLines(const TBoard& rBoard);
  void MapCircuits(const TBoard& rBoard, int& iCic);
  void ReportBoardFacts(const TBoard& rBoard);
  void LogBoardList();

  void* shpaDll = nullptr;  // second handle on the card library, to find the optional function
};
