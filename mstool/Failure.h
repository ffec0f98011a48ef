// How the program fails.
#pragma once

#include <stdexcept>
#include <string>

namespace tool {

inline constexpr int kExitDone = 0;
inline constexpr int kExitUsage = 1;
inline constexpr int kExitDamaged = 2;  // the store, or input that was refused
inline constexpr int kExitRepaired = 3;
inline constexpr int kExitCannotAccess = 4;
inline constexpr int kExitInUse = 5;
inline constexpr int kExitInterrupted = 130;

inline constexpr const char* kInUse = "in use by another process; try again when that is done";

// Ends the command. The text says what happened and what to do; the store's name is put in front.
class Failure : public std::runtime_error {
 public:
  Failure(int exitCode, const std::string& text) : std::runtime_error(text), m_exit(exitCode) {}
  int ExitCode() const { return m_exit; }

 private:
  int m_exit;
};

// The failure that an exception of the library amounts to once the store is open.
Failure Explain(const std::exception& error);

}  // namespace tool
