// A system handle with an owner, and the way from GetLastError to Status.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
// The system's header renames what bears the name of one of its calls.
#undef RemoveDirectory
#undef WriteProfileSection
#undef WriteProfileString

#include <utility>

#include "platform/Status.h"

namespace platform::win32 {

class Handle {
 public:
  Handle() = default;
  explicit Handle(HANDLE handle) : m_handle(handle != INVALID_HANDLE_VALUE ? handle : nullptr) {}
  Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(m_handle, other.m_handle);
    return *this;
  }
  ~Handle() {
    if (m_handle != nullptr) ::CloseHandle(m_handle);
  }
  bool Valid() const { return m_handle != nullptr; }
  HANDLE Get() const { return m_handle; }

 private:
  HANDLE m_handle = nullptr;
};

Status StatusOf(DWORD error);
inline Status LastStatus() {
  return StatusOf(::GetLastError());
}
// For calls that answer whether they succeeded.
inline Status StatusOfCall(BOOL done) {
  return done ? Status() : LastStatus();
}

}  // namespace platform::win32
