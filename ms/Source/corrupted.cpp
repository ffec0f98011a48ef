#include "corrupted.h"

#include "kit/KitFile.h"
#include "kit/LogDispatcher.h"
#include "platform/Profile.h"
#include "platform/Time.h"

namespace MSF {

const char* const szMaintenanceSection = "Maintenance";
const char* const szClosedStateKey = "State";
const char* const szClosedStateKeyValue = "Closed";
const char* const szRepairRequestKey = "RepairRequest";
const char* const szRepairRequestKeyValue = "1";

}  // namespace MSF

CMSBaseIntegrityInformer g_MSBaseInformer;

namespace {

// The log identifies the event by these two; they stay what they have always been.
constexpr char kSource[] = "ms\\Source\\corrupted";
constexpr int kLine = 93;

std::string Entry(const std::string& reason) {
  const platform::LocalTime now = platform::LocalNow();
  return KitFormat(
             "%02d/%02d/%04d %02d:%02d:%02d.%03d ======== Request for repair\r\n The reason is: ",
             now.day, now.month, now.year, now.hour, now.minute, now.second, now.millisecond) +
         reason + "\r\n";
}

void AppendToJournal(const std::string& directory, const std::string& entry) {
  CKitFile journal(
      CKitFile::Join(directory, "fixme.dat"),
      {platform::Access::ReadWrite, platform::Disposition::OpenOrCreate, platform::Sharing::All});
  journal.Append(entry.data(), entry.size());
}

// The journal has the report already, so a request that cannot be written is no failure.
void RequestRepair(const std::string& directory) {
  const std::string master = CKitFile::Join(directory, "ms3.db");
  static_cast<void>(platform::WriteProfileString(
      master, MSF::szMaintenanceSection, MSF::szRepairRequestKey, MSF::szRepairRequestKeyValue));
  static_cast<void>(platform::FlushProfile(master));
}

}  // namespace

CMSBaseIntegrityInformer::~CMSBaseIntegrityInformer() = default;

void CMSBaseIntegrityInformer::InformBaseIsCorrupted(const CKitString& directory,
                                                     const CKitString& reason) {
  const CSharedLocker guard(m_lock);
  AppendToJournal(directory, Entry(reason));
  RequestRepair(directory);
  const std::string text =
      KitFormat("MS requests to be repaired (%s, %s)", reason.c_str(), directory.c_str());
  LogEvent(severity::Error, text.c_str(), kSource, kLine);
}
