// Takes the log while it lives, and keeps it.
#pragma once

#include <string>

#include "kit/KitString.h"
#include "kit/LogDispatcher.h"

class LogSink : public CLogSink {
 public:
  LogSink() : m_previous(SetLogSink(this)) {}
  ~LogSink() override { SetLogSink(m_previous); }
  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;
  void WriteLogFormatted(const char* text, const char* prefix, int severity) override {
    events += KitFormat("%s|%s|%d\n", prefix, text, severity);
  }
  int ReportLog(int severity, const char* text, const char* source, int line) override {
    events += KitFormat("%d|%s|%s:%d", severity, text, source, line);
    return 0;
  }
  std::string events;

 private:
  CLogSink* const m_previous;
};
