#include "platform/Program.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace platform {

std::vector<std::string> ProgramWords(int count, char** words) {
  return {words, words + count};
}

void PrepareOutput() {}

bool IsTerminal(Stream stream) {
  const char* kind = std::getenv("TERM");
  const bool understands = kind != nullptr && std::string_view(kind) != "dumb";
  return understands && ::isatty(static_cast<int>(stream)) != 0;
}

}  // namespace platform
