#include "platform/Process.h"

#include <sys/random.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

#include "platform/System.h"
#include "platform/posix/Handle.h"

namespace platform {
namespace {

bool IsTraced() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word != "TracerPid:") continue;
    long tracer = 0;
    return status >> tracer && tracer != 0;
  }
  return false;
}

}  // namespace

void BreakIntoDebugger() {
  if (!IsTraced()) std::abort();
  std::raise(SIGTRAP);
}

void SystemRandomBytes(void* data, std::size_t size) {
  auto* bytes = static_cast<unsigned char*>(data);
  for (std::size_t done = 0; done < size;) {
    const auto got = posix::Retry([&] { return ::getrandom(bytes + done, size - done, 0); });
    if (got <= 0) std::abort();
    done += static_cast<std::size_t>(got);
  }
}

}  // namespace platform
