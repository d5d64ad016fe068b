// samples: the work on each sample of a recording.
// A thousand lines deliver eight million samples a second, so what a sample costs is decided here. What the functions
// of g711 make of a code, or of two, stands in tables, which the first call makes by these very functions. Threads:
// any; pure functions.
#pragma once

#include <cstddef>

#include "g711.h"

// Adds the samples behind acFrom to those behind acInto, as they are heard together: sums in 16 bits, clipped.
void MixSamples(const AudioLaw& rLaw, unsigned char* acInto, const unsigned char* acFrom, std::size_t uiSamples);
// dSum with the square of each sample added, full scale being 1. Without rounding for any sum below 100 million.
double AddSquares(const AudioLaw& rLaw, double dSum, const unsigned char* acSamples, std::size_t uiSamples);
// The samples of two channels in turns, 2 * uiSamples bytes; acPairs overlaps neither channel.
void InterleaveSamples(unsigned char* acPairs, const unsigned char* acFirst, const unsigned char* acSecond,
                       std::size_t uiSamples);
