// SimConfigFiles: the files that the simulated cards start from, in a directory of their own.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

// Where this program was built, with the simulated cards' tools in "sim/".
inline std::string BuildDir() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path().string();
}

class SimConfigFiles {
 public:
  SimConfigFiles() {
    char acTemplate[] = "/tmp/simcards.XXXXXX";
    strDir = mkdtemp(acTemplate);
    Write("ShIndex.ini", "");
  }
  ~SimConfigFiles() { std::filesystem::remove_all(strDir); }
  SimConfigFiles(const SimConfigFiles&) = delete;
  SimConfigFiles& operator=(const SimConfigFiles&) = delete;

  std::string Path(const std::string& strName) const { return strDir + "/" + strName; }
  void Write(const std::string& strName, const std::string& strText) const {
    std::ofstream(Path(strName), std::ios::binary) << strText;
  }
  std::string Read(const std::string& strName) const {
    std::ifstream rFile(Path(strName), std::ios::binary);
    return {std::istreambuf_iterator<char>(rFile), std::istreambuf_iterator<char>()};
  }

  // Four cards, one of each family: channels 0..1 analogue, 2..4 stations, 5..124 a trunk card, 125..126 analogue.
  static constexpr const char* FOUR_CARDS =
      "card ATP-2A 1001 2\n"
      "card DST-3B 1002 3\n"
      "card DTP-120C 1003 120\n"
      "card SHT-2D 1004 2\n";
  // What the daemon writes for them.
  static std::string FourCardsConfig() {
    const std::string strScales = "10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10,10";
    return "[AppChToBoardChTable]\n"
           "AppCh[0]=0,0..1\nAppCh[125]=3,0..1\nAppCh[2]=1,0..2\nAppCh[5]=2,0..119\nTotalAppCh=127\n"
           "[AppSpyCICTable]\n"
           "AppSpyCIC[0]=SpyPcm[0],0..29\nAppSpyCIC[30]=SpyPcm[1],0..29\nTotalAppSpyCIC=60\n"
           "[BoardId=0]\n"
           "BargeInSensitive=12,12\nBoardModel=ATP-2A\nBoardSerialNumber=1001\nDstRecRawData=0\n"
           "DualAndAllFreqEnScale=" +
           strScales +
           "\nEnableDMA=0\nIgnoreLineVoltage=0,1\nIsHangupDtrmVoltage=26,26\nPBXType=\n"
           "[BoardId=1]\n"
           "BoardModel=DST-3B\nBoardSerialNumber=1002\nDstRecRawData=0\nPBXType=NEC\n"
           "[BoardId=2]\n"
           "BoardModel=DTP-120C\nBoardSerialNumber=1003\nDstRecRawData=0\nDualAndAllFreqEnScale=32\nPBXType=\n"
           "PcmClockMode[0]=0\nPcmClockMode[1]=2\nPcmClockMode[2]=2\nPcmClockMode[3]=2\n"
           "PcmLinkType[0]=0\nPcmLinkType[1]=0\nPcmLinkType[2]=0\nPcmLinkType[3]=0\nPcmNumber=4\n"
           "PcmSSx[0]=2\nPcmSSx[1]=2\nPcmSSx[2]=2\nPcmSSx[3]=2\nUseHdlc=1\n"
           "[BoardId=3]\n"
           "BargeInSensitive=12,12\nBoardModel=SHT-2D\nBoardSerialNumber=1004\nDstRecRawData=0\n"
           "DualAndAllFreqEnScale=" +
           strScales +
           "\nIgnoreLineVoltage=0,0\nIsHangupDtrmVoltage=26,26\nPBXType=\n"
           "[DebugView]\n"
           "ApiLogEnable=0\n"
           "[PcmInfo]\n"
           "Pcm[0]=2,0\nPcm[1]=2,1\nPcm[2]=2,2\nPcm[3]=2,3\nTotalPcm=4\n"
           "[SpyPcm]\n"
           "SpyPcm[0]=Pcm[0],Pcm[1]\nSpyPcm[1]=Pcm[2],Pcm[3]\nTotalSpyPcm=2\n"
           "[SystemConfig]\n"
           "EventInterfaceType=1\nR2DetectMode=1\nTotalBoards=4\nWhoSupplySysClock=2\n";
  }

 private:
  std::string strDir;
};
