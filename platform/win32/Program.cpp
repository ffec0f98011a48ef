#include "platform/Program.h"

#include <fcntl.h>
#include <io.h>

#include <memory>

#include "platform/win32/Handle.h"
#include "platform/win32/Wide.h"
// After windows.h, which it needs.
#include <shellapi.h>

namespace platform {
namespace {

struct Free {
  void operator()(wchar_t** words) const { ::LocalFree(words); }
};

}  // namespace

// What main is given went through the code page, which loses what is not in it.
std::vector<std::string> ProgramWords(int count, char** words) {
  int found = 0;
  const std::unique_ptr<wchar_t*, Free> wide(::CommandLineToArgvW(::GetCommandLineW(), &found));
  if (wide == nullptr) return {words, words + count};
  std::vector<std::string> narrow;
  for (int i = 0; i < found; ++i) narrow.push_back(win32::Narrow(wide.get()[i]));
  return narrow;
}

void PrepareOutput() {
  ::SetConsoleOutputCP(CP_UTF8);
  for (const Stream stream : {Stream::Output, Stream::Error}) {
    ::_setmode(static_cast<int>(stream), _O_BINARY);
  }
}

bool IsTerminal(Stream stream) {
  const HANDLE handle =
      ::GetStdHandle(stream == Stream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  DWORD mode = 0;
  if (!::GetConsoleMode(handle, &mode)) return false;
  return ::SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

}  // namespace platform
