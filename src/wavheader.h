// wavheader: the 56 bytes in front of a recording's audio: RIFF with a "fact" chunk, 8 kHz, 8 bits, little-endian.
// docs/formats.md has the offset table.
// Threads:   any; a pure function.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "g711.h"

constexpr std::size_t WAV_HEADER_BYTES = 56;

using WavHeader = std::array<unsigned char, WAV_HEADER_BYTES>;

// The header of a file with uiAudioBytes behind it. The lengths wrap above 4 GB.
WavHeader MakeWavHeader(const AudioLaw& rLaw, unsigned uiChannels, std::uint32_t uiAudioBytes);
