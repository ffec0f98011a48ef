// The log of one maintenance job: a text for a support engineer, and the events of the host's log.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "Format.h"
#include "MSFixer.h"

namespace MSF {

// "[D-0000001F]"; the letter is X for a type that there is not.
std::string GetIDString(const CFixer::COID& object);
// The same with the slot: "[D-0000001F:00000003]".
std::string GetIDString(const CFixer::CUID& object);
// An event for the host. line is a number of the call's own.
void Dispatch(int severity, const std::string& text, int line);

// Without a stream nothing is written. Failures of the stream are not looked at: the job goes on.
class CMaintenanceLog {
 public:
  explicit CMaintenanceLog(std::ostream* stream) : m_stream(stream) {}

  // With the events of their own. An empty backup directory is told as none.
  void JobBegin(int job, const std::string& directory, const std::string& backupDirectory);
  void JobEnd(const std::string& directory);

  void Step(const char* name);
  void Copying(const std::string& from, const std::string& to);
  void Moving(const std::string& from, const std::string& to);
  void Deleting(const std::string& path);
  void RemovingBackup();
  // Any other line of a step, as it is.
  void Detail(const std::string& text);

  struct Counts {
    std::uint32_t total = 0;
    std::uint32_t used = 0;
    std::uint32_t free = 0;
  };
  void FileStatistics(const CMSFileHeader& header, const Counts& found);
  void CountsMismatch();
  void ObjectStatistics(std::uint32_t folders, std::uint32_t documents, std::uint32_t attachments,
                        std::uint32_t recipients);
  // With its event.
  void Error(const std::string& text);

 private:
  std::ostream* const m_stream;
};

}  // namespace MSF
