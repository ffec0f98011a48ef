// The master file "ms3.db": the store's counters and state, and its clients' own data.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "Durability.h"
#include "kit/KitString.h"
#include "platform/Profile.h"

// Reads never fail: what is not there reads as its default. Not locked: the store calls it under
// its own lock.
//
// Entries of the counter cache are kept here, and count, until SaveCounters has written them: one
// that cannot be written is as good as one that can, as long as the store is open.
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
  // Writes these, and then all entries that wait. Answers whether that succeeded, as do the others
  // below.
  bool SaveCounters(const Counters& counters);
  bool SetState(const char* state);
  // "" when there is none.
  std::string ReadState() const;

  // The counter cache of one folder; "" when there is none.
  std::string ReadExtraFolderData(std::uint32_t folder) const;
  // Refused (false) on a read-only store.
  bool SaveExtraFolderData(std::uint32_t folder, std::string value);
  bool DropExtraFolderData(std::uint32_t folder);
  bool DropAllExtraFolderData();

  // See CMSMessageStore; custom data has reached the medium when the write returns true. The
  // counter cache is in the file when this has read it, and before it is changed so.
  CKitString GetCustomData(const char* section, const char* key);
  bool WriteCustomData(const char* section, const char* key, const char* value);

  // The path is made afresh for each use; no handle to the file is kept.
  std::string Path() const;

 private:
  // Whether it is on the medium, too.
  bool WriteThrough(const char* section, const char* key, const char* value);
  bool Write(const char* section, const std::vector<platform::ProfileKey>& keys);
  bool SaveNumbers(const Counters& counters);
  bool SaveEntries();
  bool Keep(std::uint32_t folder, std::optional<std::string> entry);
  platform::Status StartWriteOut() override;
  platform::Status Sync() override;

  const std::string m_directory;
  const bool m_readOnly;
  // Folders that were asked for and have no entry: each letter that comes or goes asks again.
  mutable std::unordered_set<std::uint32_t> m_without;
  std::optional<Counters> m_saved;  // by the last SaveCounters, if it succeeded
  std::map<std::uint32_t, std::optional<std::string>> m_waiting;  // no text: to be removed
};
