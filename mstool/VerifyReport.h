// The differences of two stores, as lines or as JSON.
#pragma once

#include <cstdint>
#include <string>

#include "Output.h"

namespace tool {

struct VerifyCounts {
  std::uint64_t equal = 0;  // letters, as the next three
  std::uint64_t different = 0;
  std::uint64_t notInTarget = 0;
  std::uint64_t onlyInTarget = 0;
  std::uint64_t differentFolders = 0;
  std::uint64_t foldersNotInTarget = 0;
  std::uint64_t foldersOnlyInTarget = 0;
  std::uint64_t missingFiles = 0;
};

// What a line is about: its beginning, and its members in JSON.
struct VerifySubject {
  std::string label;
  Json members;
};

class VerifyReport {
 public:
  explicit VerifyReport(bool json);

  void Differs(const VerifySubject& subject, const std::string& field, const std::string& store,
               const std::string& target);
  // where: "STORE" or "TARGET".
  void IsNotIn(const VerifySubject& subject, const char* where);
  void FileIsMissing(const VerifySubject& subject, std::size_t attachment, const std::string& name,
                     const char* where);
  void End(const VerifyCounts& counts, double seconds);

  std::uint64_t Differences() const { return m_differences; }

 private:
  // The line, or the subject's members with these.
  void Tell(const VerifySubject& subject, const std::string& line, const Json& members);

  bool m_json;
  JsonStream m_out;
  std::uint64_t m_differences = 0;
};

}  // namespace tool
