// What a child process may write: each byte n below 200 begins a piece of n bytes of its output, any other one of n -
// 200 bytes of its error output. Each piece arrives by itself, and the output ends behind the last one.
#include "LineCom.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "FuzzBytes.h"
#include "FuzzCheck.h"
#include "LogSink.h"

namespace {

constexpr std::size_t MAX_REPLY_BYTES = 3000;
constexpr unsigned ERROR_OUTPUT = 200;

// A child that is alive, so that none is started.
pid_t Child() {
  static const pid_t iPid = [] {
    const pid_t iForked = fork();
    if (iForked == 0) {
      (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (;;) (void)pause();
    }
    return iForked;
  }();
  return iPid;
}

// A conversation with that child, over sockets that keep the borders of pieces.
class Conversation : public LineCom {
 public:
  Conversation() {
    childPid = Child();
    for (const int i : {0, 2}) {
      int aiEnds[2] = {};
      FuzzCheck(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, aiEnds) == 0,
                "there are sockets");
      pipesfd[i] = aiEnds[0];
      aiTheirs[i] = aiEnds[1];
    }
    writeToChild = fopen("/dev/null", "we");
    FuzzCheck(writeToChild != nullptr, "there is somewhere to write");
  }
  ~Conversation() {
    for (const int i : {0, 2}) (void)close(aiTheirs[i]);
  }
  Conversation(const Conversation&) = delete;
  Conversation& operator=(const Conversation&) = delete;

  // False when there is no room for the piece.
  bool Put(bool fErrors, const std::string& strPiece) {
    return send(aiTheirs[fErrors ? 2 : 0], strPiece.data(), strPiece.size(), MSG_NOSIGNAL) >= 0;
  }
  void EndOutput() { (void)shutdown(aiTheirs[0], SHUT_WR); }
  bool Ask(std::string& strReply) { return InternalSendMsg("type=crec\n", strReply); }

 private:
  int aiTheirs[3] = {-1, -1, -1};
};

// The reply as it should be.
class Expected {
 public:
  void Take(std::string strPiece) {
    if (fOver) return;
    strPiece.resize(std::min(strPiece.size(), MAX_REPLY_BYTES - strAll.size()));  // a socket drops the rest
    fOver = strPiece.empty();                                                     // reads as the end
    strAll += strPiece;
    fComplete = !fOver && strAll.back() == '\n';
    fOver = fOver || fComplete || strAll.size() == MAX_REPLY_BYTES;
  }
  std::string Text() const { return strAll.substr(0, strAll.find('\0')); }
  bool IsGood() const { return fComplete && Text() != "ERROR\n"; }
  bool IsComplete() const { return fComplete; }

 private:
  std::string strAll;
  bool fOver = false;
  bool fComplete = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* prData, size_t iSize) {
  FuzzBytes rBytes(prData, iSize);
  Conversation rConversation;
  Expected rExpected;
  bool fRoom = true;
  while (fRoom && !rBytes.IsOver()) {
    const unsigned uiLength = rBytes.Byte();
    const bool fErrors = uiLength >= ERROR_OUTPUT;
    const std::string strPiece = rBytes.Text(fErrors ? uiLength - ERROR_OUTPUT : uiLength);
    if (fErrors && strPiece.empty()) continue;  // an end, which costs the child's listener a pause
    fRoom = rConversation.Put(fErrors, strPiece);
    if (fRoom && !fErrors) rExpected.Take(strPiece);
  }
  rConversation.EndOutput();
  std::string strReply = "(none)";
  FuzzCheck(rConversation.Ask(strReply) == rExpected.IsGood(), "a reply is one that ends in a line feed, and no ERROR");
  FuzzCheck(strReply == (rExpected.IsComplete() ? rExpected.Text() : "(none)"), "a reply is what the child wrote");
  (void)logsink::Take();
  return 0;
}
