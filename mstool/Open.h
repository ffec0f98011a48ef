// Opening a store for one command.
#pragma once

#include <ms/MessageStore.h>

#include <memory>
#include <string>

namespace tool {

enum class Purpose { Read, Write };

// What "Maintenance"/"State" of a store says, to be put back when an opening has changed it.
class StateMark {
 public:
  explicit StateMark(const std::string& directory);
  const std::string& Text() const { return m_text; }
  bool SaysClosed() const;
  // A master file that said nothing gets nothing to say; one that is not there stays away.
  void PutBack() const;

 private:
  std::string m_master;
  std::string m_text;
};

// An open store, closed at the end of its life; handles to its objects must be gone by then.
//
// A directory that is not there, holds no store or only part of one, a store that another process
// has open, that cannot be read, or that is damaged: each is a Failure that says so. A store that
// was not closed properly is opened with a note on standard error; for writing only when a scan
// finds it good (see CheckAfterCrash), since what is built on damage cannot be told from it later.
// Reading leaves the state as it was found, from right after the opening on, so that it shows no
// trace of a reader that was killed.
class OpenStore {
 public:
  OpenStore(const std::string& directory, Purpose purpose);
  ~OpenStore();
  OpenStore(const OpenStore&) = delete;
  OpenStore& operator=(const OpenStore&) = delete;

  CMSMessageStore* operator->() { return &m_store; }
  CMSMessageStore& operator*() { return m_store; }
  // "Maintenance"/"State" as it was before this opening.
  const std::string& FoundState() const { return m_found.Text(); }

 private:
  class Log;
  void LookBeforeOpening(Purpose purpose);
  void Open(Purpose purpose);

  std::string m_directory;
  StateMark m_found;
  bool m_keepState = false;  // what the closing writes is not to stay
  std::unique_ptr<Log> m_log;
  CMSMessageStore m_store;
};

// Opens the other store of a command that has one open. Its failures name it.
std::unique_ptr<OpenStore> OpenOther(const std::string& directory, Purpose purpose);

// Whether another process has the store open in a way that leaves no room for this purpose. Readers
// do not disturb each other. For writing, a scan or a repair at work counts as well.
bool IsInUse(const std::string& directory, Purpose purpose = Purpose::Write);

// Failure when there is no such directory, or it cannot be looked at.
void RequireDirectory(const std::string& directory);

// The eleven files of a store.
extern const char* const kStoreFiles[11];

// Makes the store with its predefined folders. Failure when the directory holds one already.
void CreateStore(const std::string& directory);

}  // namespace tool
