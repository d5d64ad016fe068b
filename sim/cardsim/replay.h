// replay: the trace of a station line, "dch.log" and "dmsg.log", as a scenario that gives a line the same messages.
// Lines of events become actions at the second that they have in the trace; the texts of displays come from "dmsg.log",
// whose entries stand in the order of the display events. Lines of raw data are checked and passed over: the events are
// what the card made of them. What a trace lacks, the scenario lacks: times within a second, the data of messages other
// than displays, audio, and what happened on the line before and after.
// Threads: any; no state.
#pragma once

#include <string>
#include <vector>

namespace simcards {

struct TraceFile {
  std::string strName;  // for errors
  std::string strText;
};

// The channel of the trace.
constexpr int CHANNEL_OF_TRACE = -1;

// The scenario; it passes ParseScenario. prTexts: the displays; null: they go without text. iChannel: where the
// messages go. astrErrors gets "FILE:LINE: what was expected and what was found" for what is wrong, and the result is
// empty then.
std::string ReplayScenario(const TraceFile& rEvents, const TraceFile* prTexts, int iChannel,
                           std::vector<std::string>& astrErrors);

}  // namespace simcards
