// cli_words: what the command lines of the tools tell those who give a number out of its range.
#pragma once

#include <string>

// A complaint about a text that is no number from dLeast to dMost, as a validator of options gives it; empty when it is
// one. dMost may be infinite.
std::string ComplainOfNumber(const std::string& strText, double dLeast, double dMost);
