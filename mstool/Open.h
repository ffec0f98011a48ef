// Opening a store for one command.
#pragma once

#include <ms/MessageStore.h>

#include <memory>
#include <string>

namespace tool {

enum class Purpose { Read, Write };

// An open store, closed at the end of its life; handles to its objects must be gone by then.
//
// A directory that is not there, holds no store or only part of one, a store that another process
// has open, that cannot be read, or that is damaged: each is a Failure that says so. A store that
// was not closed properly is opened, with a note on standard error; reading it leaves that state
// as it was found.
class OpenStore {
 public:
  OpenStore(const std::string& directory, Purpose purpose);
  ~OpenStore();
  OpenStore(const OpenStore&) = delete;
  OpenStore& operator=(const OpenStore&) = delete;

  CMSMessageStore* operator->() { return &m_store; }
  CMSMessageStore& operator*() { return m_store; }
  // "Maintenance"/"State" as it was before this opening.
  const std::string& FoundState() const { return m_foundState; }

 private:
  class Log;
  void LookBeforeOpening(Purpose purpose);
  void Open(Purpose purpose);
  void RestoreState() const;

  std::string m_directory;
  std::string m_master;
  std::string m_foundState;
  bool m_keepState = false;  // what the closing writes is not to stay
  std::unique_ptr<Log> m_log;
  CMSMessageStore m_store;
};

// The eleven files of a store.
extern const char* const kStoreFiles[11];

// Makes the store with its predefined folders. Failure when the directory holds one already.
void CreateStore(const std::string& directory);

}  // namespace tool
