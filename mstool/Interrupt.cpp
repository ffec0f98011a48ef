#include "Interrupt.h"

#include <csignal>

#include "Failure.h"

namespace tool {
namespace {

volatile std::sig_atomic_t g_interrupted = 0;

// Some systems forget the handler as they call it.
extern "C" void NoteInterrupt(int signal) {
  std::signal(signal, NoteInterrupt);
  g_interrupted = 1;
}

}  // namespace

void WatchInterrupts() {
  std::signal(SIGINT, NoteInterrupt);
  std::signal(SIGTERM, NoteInterrupt);
#ifdef SIGHUP
  std::signal(SIGHUP, NoteInterrupt);
#endif
#ifdef SIGBREAK
  std::signal(SIGBREAK, NoteInterrupt);
#endif
#ifdef SIGPIPE
  std::signal(SIGPIPE, SIG_IGN);
#endif
}

bool Interrupted() {
  return g_interrupted != 0;
}

void StopIfInterrupted() {
  if (Interrupted()) throw Failure(kExitInterrupted, "interrupted");
}

}  // namespace tool
