// flood: how often messages of one kind may leave, and what of them has been left out.
// A full disk or a driver that fails at once makes the same message for every block of every line, hundreds a second.
// Messages whose texts differ in digits alone are of one kind. Each kind has an allowance that no ordinary trouble uses
// up, and that fills again slowly. What goes beyond it is counted, with the last of its texts, until somebody takes the
// count. Nothing is allocated.
// Threads:   one; whoever shares a limit brings the lock.
#pragma once

#include <cstddef>
#include <cstdint>

class FloodLimit {
 public:
  static constexpr int BURST = 100;               // messages of a kind at once
  static constexpr std::int64_t REFILL_MS = 600;  // one more each so often: 100 a minute
  static constexpr std::size_t TEXT_BYTES = 200;
  static constexpr std::size_t KINDS = 64;  // that have spoken of late; what comes beyond them shares the last place

  // What was left out of one kind.
  struct LeftOut {
    unsigned long iCount = 0;
    char acLast[TEXT_BYTES] = "";  // the last text, cut to this length
  };

  // True when a message of this kind may leave. Otherwise it counts as left out. Times are of one clock that only
  // goes forward.
  bool Admit(const char* acText, std::int64_t iNowMs);
  // Takes what was left out of a kind that may speak again, or, with fAll, of any kind; false when there is none.
  bool Take(std::int64_t iNowMs, bool fAll, LeftOut& rLeftOut);
  // Whether anything is left out and not taken.
  bool HasLeftOut() const { return iKindsLeftOut > 0; }

 private:
  struct Kind {
    std::uint64_t iHash = 0;
    int iAllowance = BURST;
    std::int64_t iFilledMs = 0;  // the allowance is as of this time
    LeftOut rLeftOut;
  };

  Kind& Find(std::uint64_t iHash, std::int64_t iNowMs);
  static void Refill(Kind& rKind, std::int64_t iNowMs);

  Kind raKinds[KINDS];
  std::size_t iKindsLeftOut = 0;
};
