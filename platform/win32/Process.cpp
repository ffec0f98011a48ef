#define _CRT_RAND_S  // makes stdlib.h declare rand_s, the system's random source without another
                     // library
#include "platform/Process.h"

#include <stdlib.h>

#include <algorithm>
#include <cstring>

#include "platform/System.h"
#include "platform/win32/Handle.h"

namespace platform {

void BreakIntoDebugger() {
  if (!::IsDebuggerPresent()) ::abort();
  ::DebugBreak();
}

void SystemRandomBytes(void* data, std::size_t size) {
  auto* bytes = static_cast<unsigned char*>(data);
  while (size > 0) {
    unsigned int word = 0;
    if (::rand_s(&word) != 0) ::abort();
    const std::size_t step = std::min(size, sizeof word);
    std::memcpy(bytes, &word, step);
    bytes += step;
    size -= step;
  }
}

}  // namespace platform
