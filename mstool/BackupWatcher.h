// What a backup tells while it runs.
#pragma once

#include <ms/Archiver.h>

#include <optional>

#include "Failure.h"
#include "Output.h"
#include "Progress.h"

namespace tool {

// Shows the progress, tells every failure at once on standard error, and ends the backup when the
// user wants it.
class BackupWatcher : public CMSArchiver::CStatusCallback {
 public:
  // Names as the user gave them.
  BackupWatcher(CMSMessageStore& source, std::string sourceName, std::string targetName);

  bool OnProgress(const CMSArchiver::CStatus& status) override;
  int OnError(const CMSArchiver::CStatus& status, unsigned long detail) override;

  // How far it came; the letters listed, if it came no further.
  const CMSArchiver::CStatus& Last() const { return m_last; }
  // The failures told, each an object.
  const Json& Errors() const { return m_errors; }
  // Set when the target's volume had not enough room.
  const std::optional<Failure>& NoRoom() const { return m_noRoom; }
  double Seconds() const { return m_progress.Seconds(); }
  void Hide() { m_progress.Hide(); }

 private:
  enum class Stage { Listing, Comparing, Copying };
  void Draw(const CMSArchiver::CStatus& status);
  std::string Name(unsigned long letter);
  Failure LackOfRoom() const;

  CMSMessageStore m_source;
  std::string m_sourceName;
  std::string m_targetName;
  Progress m_progress;
  Stage m_stage = Stage::Listing;
  CMSArchiver::CStatus m_last;
  Json m_errors = Json::array();
  std::optional<Failure> m_noRoom;
};

}  // namespace tool
