// micro: what the pure pieces cost that run for each sample, each piece of audio or each message of a telephone, by
// Google Benchmark. Samples are those of the counting pattern: no two pieces are alike, and no value is rarer than
// others. "items_per_second" counts samples in the first group, and calls in the second.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "DstChannel.h"
#include "g711.h"
#include "recorder_conditions.h"
#include "samples.h"
#include "simcards.h"
#include "wavheader.h"

namespace {

constexpr std::size_t PIECE_BYTES = 2048;  // what a card reports at once

std::vector<unsigned char> Pieces(long long iFrom, std::size_t uiPieces) {
  std::vector<unsigned char> acPieces(uiPieces * PIECE_BYTES);
  for (unsigned char& ucSample : acPieces) ucSample = simcards::CountingByte(iFrom++);
  return acPieces;
}

std::vector<unsigned char> Piece(long long iFrom) {
  return Pieces(iFrom, 1);
}

void CountSamples(benchmark::State& rState) {
  rState.SetItemsProcessed(static_cast<std::int64_t>(rState.iterations()) * static_cast<std::int64_t>(PIECE_BYTES));
}

void CountCalls(benchmark::State& rState) {
  rState.SetItemsProcessed(static_cast<std::int64_t>(rState.iterations()));
}

// -- for each sample --------------------------------------------------------------------------------------------------

// Each round mixes pieces that nothing was mixed into yet, as sums of sums come to full scale and stay there, and other
// pairs of samples than the round before. The copy is in the figure, a small part of it.
void MixSamplesOfAPair(benchmark::State& rState) {
  constexpr std::size_t PIECES = 16;
  const std::vector<unsigned char> acFirst = Pieces(0, PIECES);
  const std::vector<unsigned char> acSecond = Pieces(PIECES * PIECE_BYTES, PIECES);
  std::vector<unsigned char> acInto(PIECE_BYTES);
  std::size_t uiRound = 0;
  for (auto _ : rState) {
    const std::size_t uiFirst = uiRound % PIECES;
    const std::size_t uiSecond = uiRound / PIECES % PIECES;  // each piece meets each other one
    uiRound++;
    memcpy(acInto.data(), acFirst.data() + uiFirst * PIECE_BYTES, PIECE_BYTES);
    MixSamples(LAW_A, acInto.data(), acSecond.data() + uiSecond * PIECE_BYTES, PIECE_BYTES);
    benchmark::DoNotOptimize(acInto.data());
  }
  CountSamples(rState);
}
BENCHMARK(MixSamplesOfAPair);

void InterleaveAPair(benchmark::State& rState) {
  const std::vector<unsigned char> acFirst = Piece(0);
  const std::vector<unsigned char> acSecond = Piece(PIECE_BYTES);
  std::vector<unsigned char> acPairs(2 * PIECE_BYTES);
  for (auto _ : rState) {
    InterleaveSamples(acPairs.data(), acFirst.data(), acSecond.data(), PIECE_BYTES);
    benchmark::DoNotOptimize(acPairs.data());
  }
  CountSamples(rState);
}
BENCHMARK(InterleaveAPair);

void Loudness(benchmark::State& rState) {
  const std::vector<unsigned char> acPiece = Piece(0);
  for (auto _ : rState) benchmark::DoNotOptimize(AddSquares(LAW_A, 0, acPiece.data(), PIECE_BYTES));
  CountSamples(rState);
}
BENCHMARK(Loudness);

void DecodeALaw(benchmark::State& rState) {
  const std::vector<unsigned char> acPiece = Piece(0);
  for (auto _ : rState) {
    for (const unsigned char ucSample : acPiece) benchmark::DoNotOptimize(alaw2linear(ucSample));
  }
  CountSamples(rState);
}
BENCHMARK(DecodeALaw);

void EncodeALaw(benchmark::State& rState) {
  std::vector<short> asPiece;
  for (const unsigned char ucSample : Piece(0)) asPiece.push_back(alaw2linear(ucSample));
  for (auto _ : rState) {
    for (const short iSample : asPiece) benchmark::DoNotOptimize(linear2alaw(iSample));
  }
  CountSamples(rState);
}
BENCHMARK(EncodeALaw);

// -- for each header or message ---------------------------------------------------------------------------------------

void HeaderOfAFile(benchmark::State& rState) {
  std::uint32_t uiAudioBytes = 0;
  for (auto _ : rState) benchmark::DoNotOptimize(MakeWavHeader(LAW_A, 1, uiAudioBytes += PIECE_BYTES));
  CountCalls(rState);
}
BENCHMARK(HeaderOfAFile);

void DisplayWithANumber(benchmark::State& rState) {
  const DisplayScanRules rRules;
  for (auto _ : rState) {
    std::string strRemoteNum;
    benchmark::DoNotOptimize(ScanDisplay("Miller, Front Desk\n12.03.2015 0301234567", rRules, strRemoteNum));
  }
  CountCalls(rState);
}
BENCHMARK(DisplayWithANumber);

void DisplayWithoutNumber(benchmark::State& rState) {
  const DisplayScanRules rRules;
  for (auto _ : rState) {
    std::string strRemoteNum;
    benchmark::DoNotOptimize(ScanDisplay("Tue 12.03.2015  10:45\nNo new calls", rRules, strRemoteNum));
  }
  CountCalls(rState);
}
BENCHMARK(DisplayWithoutNumber);

// The last of eight, so that all are asked.
void ConditionOfAList(benchmark::State& rState) {
  std::vector<StartStopCnd> vCnds;
  AddCndList("1304,1306,1308,1309,130a,130b,130c,1100.2", vCnds);
  for (auto _ : rState) benchmark::DoNotOptimize(IsCondition(vCnds, 0x1100, 2));
  CountCalls(rState);
}
BENCHMARK(ConditionOfAList);

}  // namespace

BENCHMARK_MAIN();
