// The event log of the program that hosts the store.
//
// Every event is one text given twice: to WriteLogFormatted, which keeps it, and to ReportLog,
// which may answer. Where both end up is the sink's business; a program puts its own in place with
// SetLogSink.
#pragma once

#include <exception>

#include "kit/Export.h"

namespace severity {
inline constexpr int Information = 0;
inline constexpr int Repaired = 1;  // a defect that was dealt with on the spot
inline constexpr int Error = 2;     // an error, or a request for repair
}  // namespace severity

// Receives the events. Calls may come from any thread at any time, also while the library holds
// locks: a sink must not call back into a store. Neither call may throw.
class MS_API CLogSink {
 public:
  virtual ~CLogSink() = default;
  virtual void WriteLogFormatted(const char* text, const char* prefix, int severity) = 0;
  // Answer 4 asks for a break into the debugger; every other answer is ignored.
  virtual int ReportLog(int severity, const char* text, const char* source, int line) = 0;
};

// Puts a sink in place (null: the default one, which writes errors to standard error and drops
// everything else) and returns the previous one (null for the default). The caller keeps ownership.
MS_API CLogSink* SetLogSink(CLogSink* sink);

void WriteLogFormatted(const char* text, const char* prefix, int severity);
int ReportLog(int severity, const char* text, const char* source, int line);

// The pair with the prefix "MS ", and the debugger break when ReportLog asks for it. A sink that
// has not memory enough for an event goes without it.
void LogEvent(int severity, const char* text, const char* source, int line);

// For destructors, which have nobody to throw to: an exception of body is logged.
template <class Body>
void RunOrLog(Body body, const char* source, int line) noexcept {
  try {
    body();
  } catch (const std::exception& error) {
    LogEvent(severity::Error, error.what(), source, line);
  }
}
