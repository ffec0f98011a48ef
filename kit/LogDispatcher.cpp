#include "kit/LogDispatcher.h"

#include <atomic>
#include <cstdio>
#include <new>
#include <string>

#include "platform/Lasting.h"
#include "platform/Process.h"

namespace {

constexpr int kBreakAnswer = 4;

// Keeps errors only, each as one line, whole also when several threads write.
class DefaultSink final : public CLogSink {
 public:
  void WriteLogFormatted(const char* text, const char*, int level) override {
    if (level < severity::Error) return;
    const std::string line = std::string(text) + "\n";
    std::fputs(line.c_str(), stderr);
  }
  int ReportLog(int, const char*, const char*, int) override { return 0; }
};

std::atomic<CLogSink*> g_sink{nullptr};

CLogSink& Sink() {
  static const platform::Lasting<DefaultSink> standard;
  CLogSink* sink = g_sink.load(std::memory_order_acquire);
  return sink != nullptr ? *sink : *standard;
}

}  // namespace

CLogSink* SetLogSink(CLogSink* sink) {
  return g_sink.exchange(sink, std::memory_order_acq_rel);
}

void WriteLogFormatted(const char* text, const char* prefix, int severity) {
  Sink().WriteLogFormatted(text, prefix, severity);
}

int ReportLog(int severity, const char* text, const char* source, int line) {
  return Sink().ReportLog(severity, text, source, line);
}

void LogEvent(int severity, const char* text, const char* source, int line) {
  try {
    WriteLogFormatted(text, "MS ", severity);
    if (ReportLog(severity, text, source, line) == kBreakAnswer) platform::BreakIntoDebugger();
  } catch (const std::bad_alloc&) {
    // What is logged must not fail for the sake of the log.
  }
}
