// recorder_boards: cards, present or remembered, and what the card maker's tool says about them.
// Threads:   main.
#pragma once

#include <string>
#include <vector>

#include "irecorder.h"
#include "recorder_conditions.h"

// One card, present or remembered.
struct TBoard {
  bool fPresent = false;  // found at this start; cleared on a detected entry once it has been taken into the list
  std::string strSerial;
  std::string strModel;
  std::string strId;         // board id of a card that is away
  std::string strPBXType;    // only on digital station cards
  std::string strPhoneType;  // optional
  std::vector<StartStopCnd> vStartCnds, vStopCnds, vRingOnCnds, vRingOffCnds;
  int iMaxCh = 0;       // driver channels of the card; 0 for a card that is away
  int iWebMaxCh = 0;    // monitored lines
  int iStartCh = 0;     // first driver channel
  int iWebStartCh = 0;  // first web channel, counted from 0
  int iBoardId = -1;    // the driver's board number; -1 for a card that is away
  int iChannels = 0;    // usable channels as counted after the driver has started

  // "Syn" and the serial number of a present card, the remembered id of one that is away.
  std::string getId() const;
  // By the first three characters of the model.
  ECardType GetCtType() const;
};

// Channel numbers are sums of what settings and the tool say, and those may say anything: a sum that is too large wraps
// around, where plain addition would be undefined.
int WrappingSum(int iA, int iB);

// What the tool's file says about the cards: three lists in file order, paired by position.
struct ToolConfig {
  std::vector<int> aiChannelCounts;
  std::vector<std::string> astrSerials;
  std::vector<std::string> astrModels;
};
// Reads the tool's file; three empty lists when it cannot be opened. Every kept line is expected to end in a newline:
// the last character of a section header or value is dropped unseen.
ToolConfig ReadToolConfig(const std::string& strPath);
