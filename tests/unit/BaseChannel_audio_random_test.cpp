// Recordings with random ring positions, pieces, silencing and laws, alone and as pairs, against a model of which bytes
// must come out. The sequences are the same in each run; others come with --gtest_shuffle --gtest_repeat=COUNT.
#include <array>
#include <functional>
#include <memory>
#include <random>

#include "AudioReference.h"
#include "CallBench.h"

namespace {

constexpr int RING = 4096;
constexpr int SIDE_ROOM = 2 * RING;  // of a pair, how far one side may be ahead
constexpr int RECORDINGS = 100;
constexpr int STEPS = 60;

// One side of a recording as it should be: what the ring holds, and what a report gives of it.
class ModelSide {
 public:
  // The card writes, at any place: a report that comes late finds what came later.
  void Write(std::size_t uiFrom, const std::string& strBytes) { strRing.replace(uiFrom, strBytes.size(), strBytes); }
  // The pieces that a report of this position gives, in order; silenced, the ring holds silence there too.
  std::vector<std::string> Report(long long iPos, bool fSilenced, char chSilence) {
    if (iPos < 0 || iPos > RING) return {};
    std::vector<std::string> astrPieces;
    const auto uiPos = static_cast<std::size_t>(iPos);
    const auto Take = [&](std::size_t uiFrom, std::size_t uiTo) {
      if (uiFrom == uiTo) return;
      if (fSilenced) strRing.replace(uiFrom, uiTo - uiFrom, uiTo - uiFrom, chSilence);
      astrPieces.push_back(strRing.substr(uiFrom, uiTo - uiFrom));
    };
    if (uiPos < uiRead) {
      Take(uiRead, RING);
      Take(0, uiPos);
    } else {
      Take(uiRead, uiPos);
    }
    uiRead = uiPos;
    return astrPieces;
  }

 private:
  std::string strRing = std::string(RING, '\0');  // as a new ring is
  std::size_t uiRead = 0;
};

// All sums of two samples, since the reference is slow.
class Sums {
 public:
  explicit Sums(bool fULaw) : strTable(std::size_t{256} * 256, '\0') {
    for (std::size_t i = 0; i < strTable.size(); i++) {
      strTable[i] = Mixed(std::string(1, static_cast<char>(i >> 8)), std::string(1, static_cast<char>(i)), fULaw)[0];
    }
  }
  std::string Of(const std::string& strOne, const std::string& strOther) const {
    std::string strSum;
    for (std::size_t i = 0; i < strOne.size(); i++) {
      strSum += strTable[static_cast<std::size_t>(static_cast<BYTE>(strOne[i])) << 8 | static_cast<BYTE>(strOther[i])];
    }
    return strSum;
  }

 private:
  std::string strTable;
};

// A recording as it should be.
struct Model {
  bool fPair = false;
  bool fStereo = false;
  bool fULaw = false;
  bool fSilenced = false;
  std::array<ModelSide, 2> rSides;
  std::array<std::string, 2> astrAhead;  // of a pair, what waits for the other side
  std::string strAudio;

  void Report(std::size_t uiSide, long long iPos, const Sums& rSums) {
    for (const std::string& strPiece : rSides[uiSide].Report(iPos, fSilenced, fULaw ? '\xff' : '\xd5')) {
      if (!fPair) {
        strAudio += strPiece;
        continue;
      }
      if (astrAhead[uiSide].size() + strPiece.size() > SIDE_ROOM) continue;  // dropped
      astrAhead[uiSide] += strPiece;
      if (astrAhead[0].size() != astrAhead[1].size()) continue;
      strAudio += fStereo ? Interleaved(astrAhead[0], astrAhead[1]) : rSums.Of(astrAhead[0], astrAhead[1]);
      astrAhead = {};
    }
  }
};

class BaseChannelAudioRandom : public CallBench {
 protected:
  BaseChannelAudioRandom() { rRecorder.fSilenceOnDemand = true; }

  int Below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rRandom); }
  bool OneIn(int n) { return Below(n) == 0; }

  BYTE* RingOf(std::size_t uiSide) { return rRecorder.vChannels[uiSide]->*&OpenChannel<BaseChannel>::acRecordBuf; }
  void Write(Model& rModel, std::size_t uiSide) {
    const int iFrom = Below(RING);
    const std::string strBytes =
        Noise(1 + static_cast<std::size_t>(Below(RING - iFrom)), static_cast<unsigned>(rRandom()));
    (void)strBytes.copy(reinterpret_cast<char*>(RingOf(uiSide)) + iFrom, strBytes.size());
    rModel.rSides[uiSide].Write(static_cast<std::size_t>(iFrom), strBytes);
  }
  // Mostly somewhere in the ring; its edges, and places that are none of the ring.
  DWORD Position() {
    const DWORD adwEdges[] = {0, 1, RING - 1, RING, RING + 1, 0x7fffffff, 0x80000000, 0xffffffff};
    return OneIn(5) ? adwEdges[Below(std::size(adwEdges))] : static_cast<DWORD>(Below(RING + 1));
  }
  // Now and then to where the other side is, so that the two come level.
  void Report(Model& rModel, std::size_t uiSide) {
    if (rModel.fPair && OneIn(3)) {
      CatchUp(rModel);
      return;
    }
    ReportAt(rModel, uiSide, Position());
  }
  void ReportAt(Model& rModel, std::size_t uiSide, DWORD dwPos) {
    Send(*rRecorder.vChannels[uiSide], E_PROC_RecordMem, dwPos);
    rModel.Report(uiSide, static_cast<int>(dwPos), rSums[rModel.fULaw ? 1 : 0]);
    aiReached[uiSide] = dwPos <= RING ? static_cast<int>(dwPos) : aiReached[uiSide];
  }
  // The side that is behind gives what it lacks, in at most two pieces of the ring.
  void CatchUp(Model& rModel) {
    const std::size_t uiBehind = rModel.astrAhead[0].size() < rModel.astrAhead[1].size() ? 0 : 1;
    const auto iLacks = static_cast<int>(rModel.astrAhead[1 - uiBehind].size() - rModel.astrAhead[uiBehind].size());
    const int iStep = std::min(iLacks, RING - 1);
    Write(rModel, uiBehind);
    ReportAt(rModel, uiBehind, static_cast<DWORD>((aiReached[uiBehind] + iStep) % RING));
  }
  void Silence(Model& rModel) {
    rModel.fSilenced = !rModel.fSilenced;
    EXPECT_TRUE(rLine.TrySetSilencing(rModel.fSilenced));
  }

  Model Begin() {
    Model rModel;
    rModel.fPair = !OneIn(4);
    rModel.fULaw = OneIn(2);
    rModel.fStereo = rModel.fPair && OneIn(2);
    rRecorder.eRecEnc = rModel.fULaw ? RECENC_G711U : RECENC_G711A;
    rRecorder.fStereo = rModel.fStereo;
    rLine.fStereoLine = true;
    rLine.LinkWith(rModel.fPair ? LINKED_CH : -1);
    aiReached = {};
    OffHook();
    for (const std::size_t uiSide : {0U, 1U}) {  // what the recording before has left in the rings
      if (uiSide == 0 || rModel.fPair) {
        rModel.rSides[uiSide].Write(0, std::string(reinterpret_cast<const char*>(RingOf(uiSide)), RING));
      }
    }
    return rModel;
  }
  void Step(Model& rModel) {
    const std::size_t uiSide = rModel.fPair && OneIn(2) ? 1 : 0;
    if (OneIn(12)) {
      Silence(rModel);
    } else if (OneIn(3)) {
      Write(rModel, uiSide);
    } else {
      Report(rModel, uiSide);
    }
  }
  std::string End() {
    OnHook();
    return ReadTestFile("/recordings/" + Kept("directory") + "/" + Kept("filename"));
  }

  std::mt19937 rRandom;
  const std::array<Sums, 2> rSums = {Sums(/*fULaw=*/false), Sums(/*fULaw=*/true)};
  std::array<int, 2> aiReached = {};  // position of each side's last report
};

TEST_F(BaseChannelAudioRandom, FileHoldsWhatTheModelSays) {
  std::size_t uiBytes = 0;
  for (int i = 0; i < RECORDINGS && !HasFailure(); i++) {
    const unsigned uiSeed = static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed() * RECORDINGS + i);
    SCOPED_TRACE(uiSeed);
    rRandom.seed(uiSeed);
    Model rModel = Begin();
    for (int iStep = 0; iStep < STEPS; iStep++) Step(rModel);
    const unsigned uiTag = rModel.fULaw ? 7 : 6;
    ExpectSame(Wav(uiTag, rModel.fStereo ? 2 : 1, rModel.strAudio), End());
    uiBytes += rModel.strAudio.size();
    PassSeconds(1);
    ForgetTraces();
  }
  EXPECT_GT(uiBytes, 300'000U) << "the sequences reach no file";
}

}  // namespace
