#include "BackupWatcher.h"

#include <iostream>

#include "Interrupt.h"
#include "Lookup.h"
#include "Text.h"
#include "kit/KitFolder.h"
#include "platform/File.h"

namespace tool {
namespace {

constexpr std::uint32_t kNoRoom = 35;
constexpr std::uint64_t kRoomFactor = 4;
constexpr int kLeaveOut = 1;
constexpr int kEnd = 3;

// Free bytes where the directory is or, as long as it is not there, where it would be.
std::uint64_t FreeBytes(const std::string& directory) {
  std::uint64_t bytes = 0;
  return platform::Files().FreeSpace(CKitFolder::NearestExisting(directory), bytes).Ok() ? bytes
                                                                                         : 0;
}

}  // namespace

BackupWatcher::BackupWatcher(CMSMessageStore& source, std::string sourceName,
                             std::string targetName)
    : m_source(source), m_sourceName(std::move(sourceName)), m_targetName(std::move(targetName)) {}

bool BackupWatcher::OnProgress(const CMSArchiver::CStatus& status) {
  m_last = status;
  Draw(status);
  return !Interrupted();
}

void BackupWatcher::Draw(const CMSArchiver::CStatus& status) {
  const Stage stage = status.Phase != CMSArchiver::kCopying ? Stage::Listing
                      : status.Compared < status.Listed     ? Stage::Comparing
                                                            : Stage::Copying;
  if (stage != m_stage) m_progress.Begin();
  m_stage = stage;
  if (!m_progress.IsDue()) return;
  switch (stage) {
    case Stage::Listing:
      m_progress.Draw(KitFormat("listing    %u letters", status.Listed), 0, 1);
      break;
    case Stage::Comparing:
      m_progress.Draw(KitFormat("comparing  %u of %u letters", status.Compared, status.Listed),
                      status.Compared, status.Listed);
      break;
    case Stage::Copying:
      m_progress.Draw(
          KitFormat("copying    %u of %u letters  %s of %s", status.Done, status.Listed,
                    SizeText(status.DoneBytes).c_str(), SizeText(status.ListedBytes).c_str()),
          status.DoneBytes, status.ListedBytes);
      break;
  }
}

int BackupWatcher::OnError(const CMSArchiver::CStatus& status, unsigned long detail) {
  m_progress.Hide();
  if (status.Error == kNoRoom) {
    m_noRoom = LackOfRoom();
    return kLeaveOut;
  }
  const std::string label = Name(detail);
  std::cerr << "mstool: " << Visible(m_sourceName) << ": " << Visible(label) << ": "
            << Visible(status.ErrorText) << '\n';
  m_errors.push_back({{"ID", detail},
                      {"Letter", label},
                      {"Error", status.Error},
                      {"ErrorText", status.ErrorText}});
  return Interrupted() ? kEnd : kLeaveOut;
}

// What made the letter fail may lie in the very record that tells its subject.
std::string BackupWatcher::Name(unsigned long letter) {
  std::string number = "letter " + std::to_string(letter);
  try {
    const CMSDocument document = m_source.GetDocument(letter);
    return document.IsValid() ? LabelOf(document) : number;
  } catch (const std::exception&) {
    return number;
  }
}

// The status was cleared before the room was looked at; the last report has the sum.
Failure BackupWatcher::LackOfRoom() const {
  return {kExitCannotAccess,
          m_targetName + ": not enough room: a backup of " + SizeText(m_last.ListedBytes) +
              " wants " + SizeText(kRoomFactor * m_last.ListedBytes) + " free, there are " +
              SizeText(FreeBytes(m_targetName)) +
              "; make room, take another disk, or back up less with --folder or --since"};
}

}  // namespace tool
