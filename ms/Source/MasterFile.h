// The master file "ms3.db": the store's counters and state, and its clients' own data.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Durability.h"
#include "kit/KitString.h"

// Reads never fail: what is not there reads as its default. Not locked: the store calls it under
// its own lock.
class CMSMasterFile : public CMSSyncTarget {
 public:
  struct Counters {
    std::uint32_t lastID = 1;
    std::uint32_t size = 0;
  };

  CMSMasterFile(CMSDurability& durability, std::string directory, bool readOnly);

  // XKitFile when the file is there and cannot be read: it would pass for an empty one.
  void CheckReadable() const;
  Counters ReadCounters() const;
  // Answers whether the write succeeded, as do the others below.
  bool SaveCounters(const Counters& counters);
  bool SetState(const char* state);

  // The counter cache of one folder; "" when there is none.
  std::string ReadExtraFolderData(std::uint32_t folder) const;
  // Refused (false) on a read-only store.
  bool SaveExtraFolderData(std::uint32_t folder, const std::string& value);
  bool DropExtraFolderData(std::uint32_t folder);

  // See CMSMessageStore; custom data has reached the medium when the write returns true.
  CKitString GetCustomData(const char* section, const char* key) const;
  bool WriteCustomData(const char* section, const char* key, const char* value);

  // The path is made afresh for each use; no handle to the file is kept.
  std::string Path() const;

 private:
  // Whether it is on the medium, too.
  bool WriteThrough(const char* section, const char* key, const char* value);
  bool Write(const char* section, const std::string& key, const char* value);
  platform::Status StartWriteOut() override;
  platform::Status Sync() override;

  const std::string m_directory;
  const bool m_readOnly;
  std::optional<Counters> m_saved;  // by the last SaveCounters, if it succeeded
};
