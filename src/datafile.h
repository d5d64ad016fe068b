// datafile: the flat text form of a string map, as kept in the column callextra.
// One record a line: key, ": ", escaped value, CR LF. CR, LF, NUL and backslash of a value are written with a
// backslash; keys are not escaped, so a key must hold no ":", NUL or CR LF.
// Threads:   any; no state.
// Errors:    text that does not parse gives fewer entries; nothing is reported.
#pragma once

#include <string>

#include "fstring.h"

std::string DataQuote(const std::string& strText);
// Reads up to the first NUL; an unknown escape keeps both its bytes, a lone backslash at the end is dropped.
std::string DataUnQuote(const std::string& strText);
std::string ArrayToString(const StdStringMap& rMap);
// Of two lines with one key the later one stands.
StdStringMap StringToArray(const std::string& strText);
