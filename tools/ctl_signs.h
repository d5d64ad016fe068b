// ctl_signs: what shows of the recorder from outside beside its lines and calls. It touches and replaces small files as
// it works, so their ages tell what it does; room on the disk and the limits of its process the system knows.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ctl_metrics.h"

constexpr const char* RECORDINGS_FOLDER = "/recordings";

// The main loop, by its report. A trace takes the loop's place, and its files are the newer then.
enum ELoopSign {
  LOOP_UNKNOWN,  // no report: a loop that takes the cards' events itself writes none
  LOOP_TURNS,
  LOOP_SILENT,  // no report for a while, and no trace file: it stands, or drains, or traces without files
  LOOP_TRACES,
};

struct DiskSpace {
  double fFreePercent = 0;  // of what is not reserved, as df counts
  std::uint64_t iFreeBytes = 0;
};

struct LastError {
  std::string strText;
  double fAgeSeconds = 0;
};

struct Signs {
  ELoopSign eLoop = LOOP_UNKNOWN;
  std::optional<LoopReport> rLoop;
  std::optional<double> fEventAge;  // seconds since the last card event; nothing: there has never been one
  std::optional<LastError> rError;
  std::optional<DiskSpace> rDisk;  // of the recordings; nothing: their folder cannot be asked
};

struct SignSources {
  std::string strLoopFile = LOOP_FILE;
  std::string strTraceFolder = "/recordings/log";
  std::string strEventFile = "/var/morvex/data/crec_event";
  std::string strErrorFile = "/var/morvex/data/err_crec.dat";
  std::string strRecordings = RECORDINGS_FOLDER;
};
Signs ReadSigns(const SignSources& rSources = {});

// fTraceAge: seconds since a trace file was written, if there is one.
ELoopSign JudgeLoop(const std::optional<LoopReport>& rLoop, const std::optional<double>& fTraceAge);

// How many descriptors the process may have that listens on this socket. Nothing for a user who may not look into it,
// and where two processes listen under the name.
std::optional<std::uint64_t> ReadDescriptorLimit(const std::string& strSocket);
