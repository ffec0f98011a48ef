// Corruption reports: how a running store asks for repair.
#pragma once

#include "kit/Export.h"
#include "kit/KitString.h"
#include "kit/SharedLock.h"

namespace MSF {

// Section and keys of the master file that tell how the store was left. A host reads them before it
// opens a store; the library only writes them.
extern MS_API const char* const szMaintenanceSection;
extern MS_API const char* const szClosedStateKey;
extern MS_API const char* const szClosedStateKeyValue;
extern MS_API const char* const szRepairRequestKey;
extern MS_API const char* const szRepairRequestKeyValue;

}  // namespace MSF

// Takes the reports of one process. Its lock is the innermost one: reports may be made while any
// other lock is held, and nothing here calls back into a store.
class MS_API CMSBaseIntegrityInformer {
 public:
  CMSBaseIntegrityInformer() = default;
  CMSBaseIntegrityInformer(const CMSBaseIntegrityInformer&) {}
  CMSBaseIntegrityInformer& operator=(const CMSBaseIntegrityInformer&) { return *this; }
  virtual ~CMSBaseIntegrityInformer();

  // Appends an entry to the journal "fixme.dat" in the directory, sets the repair request in its
  // master file and tells the log. Raises XKitFile when the journal cannot be written (the request
  // is then not set).
  void InformBaseIsCorrupted(const CKitString& directory, const CKitString& reason);

 private:
  CSharedLock m_lock;
};

// The one reporter of the process.
extern MS_API CMSBaseIntegrityInformer g_MSBaseInformer;
