// Waiting for another program to let go of a file.
//
// Virus scanners, indexers and backup programs open a file for a moment just after it was written,
// and the system refuses to rename, replace or remove it meanwhile; a removed file keeps its name
// until they close it.
#pragma once

#include <array>
#include <string>

#include "platform/win32/Handle.h"

namespace platform::win32 {

// Milliseconds between the tries: two thirds of a second in all.
inline constexpr std::array<DWORD, 6> kPauses = {10, 20, 40, 80, 160, 320};

// Whether an error may pass by itself. "Access denied" is also said of a name that waits for its
// file to be closed and of a target in use; then neither path is write-protected or a directory.
bool MayPass(DWORD error, const std::wstring& path, const std::wstring& other);

// Makes a call that answers whether it succeeded until it does, fails for good, or is out of tries.
// The paths are those that the call names.
template <class Call>
Status WithPatience(const std::wstring& path, const std::wstring& other, Call call) {
  for (const DWORD pause : kPauses) {
    if (call()) return {};
    const DWORD error = ::GetLastError();
    if (!MayPass(error, path, other)) return StatusOf(error);
    ::Sleep(pause);
  }
  return StatusOfCall(call());
}

}  // namespace platform::win32
