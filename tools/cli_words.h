// cli_words: what the command lines of the tools tell those who misspell a word or give a number out of its range.
#pragma once

#include <string>
#include <vector>

// The one of these words that was meant: the nearest by letters left out, added, changed, or exchanged with their
// neighbour: one a word, or one for each three letters. Empty when none is near enough.
std::string NearestWord(const std::string& strWord, const std::vector<std::string>& astrWords);
// "sart: no such command; did you mean start?"
std::string NoSuchCommand(const std::string& strWord, const std::vector<std::string>& astrWords);

// A complaint about a text that is no number from dLeast to dMost, as a validator of options gives it; empty when it is
// one. dMost may be infinite.
std::string ComplainOfNumber(const std::string& strText, double dLeast, double dMost);
