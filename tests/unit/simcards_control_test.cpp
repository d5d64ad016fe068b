// The control socket as a client sees it.

#include "simcards_control.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <thread>

#include "CardBench.h"
#include "SimConfigFiles.h"

namespace {

class Client {
 public:
  explicit Client(const std::string& strPath) : iFd(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un rAddress{};
    rAddress.sun_family = AF_UNIX;
    strPath.copy(rAddress.sun_path, sizeof rAddress.sun_path - 1);
    fConnected = connect(iFd, reinterpret_cast<sockaddr*>(&rAddress), sizeof rAddress) == 0;
  }
  ~Client() { close(iFd); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  void Send(const std::string& strText) {
    EXPECT_EQ(static_cast<ssize_t>(strText.size()), send(iFd, strText.data(), strText.size(), MSG_NOSIGNAL));
  }
  // The next line; "<end>" when the server has hung up.
  std::string Line() {
    std::string strLine;
    char ch = 0;
    while (recv(iFd, &ch, 1, 0) == 1) {
      if (ch == '\n') return strLine;
      strLine += ch;
    }
    return "<end>";
  }

  bool fConnected = false;

 private:
  int iFd;
};

class SimControl : public CardBench {
 protected:
  SimControl() {
    simcards::AddBoard(0, 2, CH_ANALOG);
    std::string strError;
    EXPECT_TRUE(simcards::StartControl(Path(), strError)) << strError;
  }
  std::string Path() const { return rFiles.Path("socket"); }

  SimConfigFiles rFiles;
};

TEST_F(SimControl, EveryCommandHasItsAnswer) {
  Client rClient(Path());
  rClient.Send("ch 0 offhook\nch 9 offhook\nch 0 oofhook\noverruns\n");
  EXPECT_EQ("OK", rClient.Line());
  EXPECT_EQ("ERROR channel 9 does not exist", rClient.Line());
  EXPECT_EQ(0U, rClient.Line().find("ERROR expected \"ring\", \"offhook\", "));
  EXPECT_EQ("= 0", rClient.Line());
  EXPECT_EQ("OK", rClient.Line());
  EXPECT_EQ("24 ref 0: 1\n", Events());
}

TEST_F(SimControl, CommandsMayComeInPieces) {
  Client rClient(Path());
  rClient.Send("ch 0 off");
  rClient.Send("hook\nch 1 ");
  EXPECT_EQ("OK", rClient.Line());
  rClient.Send("flash\n");
  EXPECT_EQ("OK", rClient.Line());
  EXPECT_EQ("24 ref 0: 1\n35 ref 1: 1\n", Events());
}

TEST_F(SimControl, AWaitHoldsUpItsOwnConnectionOnly) {
  Client rWaiting(Path()), rOther(Path());
  rWaiting.Send("wait recording 1\n");
  rOther.Send("ch 0 flash\n");
  EXPECT_EQ("OK", rOther.Line());
  BYTE acRing[64];
  EXPECT_EQ(SSM_OK, SsmRecToMem(1, 6, acRing, 64, 0));
  EXPECT_EQ("OK", rWaiting.Line());
}

TEST_F(SimControl, StopEndsWaitsAndConnections) {
  Client rWaiting(Path()), rIdle(Path());
  rIdle.Send("ch 0 flash\n");
  EXPECT_EQ("OK", rIdle.Line());
  rWaiting.Send("ch 0 flash\nwait recording 1 timeout 1000\n");
  EXPECT_EQ("OK", rWaiting.Line());
  simcards::StopControl();
  // The end of the connection can come before the answer.
  EXPECT_THAT(rWaiting.Line(), testing::AnyOf("ERROR the cards stop", "<end>"));
  EXPECT_EQ("<end>", rIdle.Line());
  EXPECT_FALSE(Client(Path()).fConnected);
  EXPECT_FALSE(std::filesystem::exists(Path()));
}

TEST_F(SimControl, AnEndlessLineEndsTheConnection) {
  Client rClient(Path());
  rClient.Send(std::string(70000, 'x'));
  EXPECT_EQ("<end>", rClient.Line());
  Client rNext(Path());
  rNext.Send("ch 0 flash\n");
  EXPECT_EQ("OK", rNext.Line());
}

TEST_F(SimControl, ManyClientsInARow) {
  for (int i = 0; i < 300; i++) {
    Client rClient(Path());
    if (i % 3 == 0) continue;  // connects and goes
    rClient.Send("ch 0 flash\n");
    if (i % 3 == 1) {
      EXPECT_EQ("OK", rClient.Line());
    }
  }
}

TEST_F(SimControl, ASocketInUseIsNotTakenOver) {
  simcards::StopControl();
  const int iFd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un rAddress{};
  rAddress.sun_family = AF_UNIX;
  Path().copy(rAddress.sun_path, sizeof rAddress.sun_path - 1);
  ASSERT_EQ(0, bind(iFd, reinterpret_cast<sockaddr*>(&rAddress), sizeof rAddress));
  ASSERT_EQ(0, listen(iFd, 1));
  std::string strError;
  EXPECT_FALSE(simcards::StartControl(Path(), strError));
  EXPECT_EQ("control socket " + Path() + ": another program serves it", strError);
  close(iFd);  // its name stays behind, as after a crash
  EXPECT_TRUE(simcards::StartControl(Path(), strError));
  EXPECT_TRUE(Client(Path()).fConnected);
}

TEST_F(SimControl, WrongPathsAreRefused) {
  simcards::StopControl();
  std::string strError;
  EXPECT_FALSE(simcards::StartControl("", strError));
  EXPECT_EQ("control socket : not a path for a socket", strError);
  EXPECT_FALSE(simcards::StartControl("/" + std::string(200, 'x'), strError));
  EXPECT_FALSE(simcards::StartControl("/nowhere/socket", strError));
  EXPECT_EQ("control socket /nowhere/socket: No such file or directory", strError);
}

}  // namespace
