#include "MaintenanceLog.h"

#include <array>
#include <ostream>

#include "kit/LogDispatcher.h"
#include "platform/Time.h"

namespace MSF {
namespace {

constexpr char kSource[] = "ms\\Source\\MSFixer";
const std::string kStars(63, '*');

char LetterOf(EObjectType type) {
  switch (type) {
    case eAttachment:
      return 'A';
    case eRecipient:
      return 'R';
    case eDocument:
      return 'D';
    case eFolder:
      return 'F';
  }
  return 'X';
}

std::string NowText() {
  const platform::LocalTime now = platform::LocalNow();
  return KitFormat("%.2u-%.2u-%.4u %.2u:%.2u", static_cast<unsigned>(now.day),
                   static_cast<unsigned>(now.month), static_cast<unsigned>(now.year),
                   static_cast<unsigned>(now.hour), static_cast<unsigned>(now.minute));
}

const char* JobName(int job) {
  static constexpr std::array kNames{"backup", "scan", "repair"};
  return job >= 0 && static_cast<std::size_t>(job) < kNames.size()
             ? kNames[static_cast<std::size_t>(job)]
             : "unknown";
}

}  // namespace

std::string GetIDString(const CFixer::COID& object) {
  return KitFormat("[%c-%.8X]", LetterOf(object.Type), object.ID);
}

std::string GetIDString(const CFixer::CUID& object) {
  return KitFormat("[%c-%.8X:%.8X]", LetterOf(object.Type), object.ID, object.Slot);
}

void Dispatch(int severity, const std::string& text, int line) {
  LogEvent(severity, text.c_str(), kSource, line);
}

void CMaintenanceLog::JobBegin(int job, const std::string& directory,
                               const std::string& backupDirectory) {
  Dispatch(severity::Information, "MS repair is starting (" + directory + ")", 101);
  Detail("\n" + kStars + "\n\n" + NowText() +
         "     MESSAGE STORE MAINTAINANCE LOG STARTS HERE\n\n" + kStars + "\n\n");
  Detail("MESSAGE STORE DIRECTORY = \"" + directory + "\"\n");
  Detail("BACKUP DIRECTORY        = \"" + (backupDirectory.empty() ? "[none]" : backupDirectory) +
         "\"\n");
  Detail(std::string("OBJECTIVE               = .: ") + JobName(job) + " :.\n\n");
}

void CMaintenanceLog::JobEnd(const std::string& directory) {
  Dispatch(severity::Information, "MS repair is finished (" + directory + ")", 102);
  Detail("\n\n\n###\n\n" + kStars + "\n\n" + NowText() +
         "     MESSAGE STORE MAINTAINANCE LOG ENDS HERE\n\n" + kStars + "\n\n");
}

void CMaintenanceLog::Step(const char* name) {
  Detail(std::string("\n>>> ") + name + "\n\n");
}

void CMaintenanceLog::Copying(const std::string& from, const std::string& to) {
  Detail("\tcopying \"" + from + "\" to \"" + to + "\"\n");
}
void CMaintenanceLog::Moving(const std::string& from, const std::string& to) {
  Detail("\tmoving \"" + from + "\" to \"" + to + "\"\n");
}
void CMaintenanceLog::Deleting(const std::string& path) {
  Detail("\tdeleting \"" + path + "\"\n");
}
void CMaintenanceLog::RemovingBackup() {
  Detail("\tremoving backup directory\n");
}

void CMaintenanceLog::FileStatistics(const CMSFileHeader& header, const Counts& found) {
  const std::array<std::pair<const char*, std::uint32_t>, 15> lines{{
      {"SI", header.SI},
      {"VE", header.VE},
      {"DO", header.DO},
      {"KS", header.KS},
      {"DS", header.DS},
      {"TC", header.TC},
      {"UC", header.UC},
      {"FI", header.FI},
      {"DC", header.DC},
      {"R1", header.R1},
      {"R2", header.R2},
      {"R3", header.R3},
      {"AT", found.total},
      {"AU", found.used},
      {"AF", found.free},
  }};
  Detail("\t-------------------------------\n");
  for (const auto& [name, value] : lines) Detail(KitFormat("\t\t%s: %.8X\n", name, value));
}

void CMaintenanceLog::CountsMismatch() {
  Detail("\t\t---------------------------------\n\t\tcounts mismatch\n");
}

void CMaintenanceLog::ObjectStatistics(std::uint32_t folders, std::uint32_t documents,
                                       std::uint32_t attachments, std::uint32_t recipients) {
  Step("object statistics:");
  Detail(
      KitFormat("\tfolders     : %u\n\tdocuments   : %u\n\tattachments : %u\n\trecipients  : %u\n",
                folders, documents, attachments, recipients));
}

void CMaintenanceLog::Error(const std::string& text) {
  Dispatch(severity::Error, "Repairing MS error: " + text, 103);
  Detail("\n\n\n[ERROR]\n\n" + text);
}

void CMaintenanceLog::Detail(const std::string& text) {
  if (m_stream != nullptr) *m_stream << text;
}

}  // namespace MSF
