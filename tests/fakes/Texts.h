// Texts: a list of texts as tests collect and compare it: log lines, statements, what a fake has noted.
#pragma once

#include <string>
#include <vector>

using Texts = std::vector<std::string>;

inline Texts Join(Texts astrFirst, const Texts& astrMore) {
  astrFirst.insert(astrFirst.end(), astrMore.begin(), astrMore.end());
  return astrFirst;
}
