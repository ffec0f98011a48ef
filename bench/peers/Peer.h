// An engine that keeps letters: this library, or one that an author might take instead. All do the
// same work on the same bytes, each as its documentation advises.
//
// A letter is one document, two attachment records and three recipients (bench/Letters.h), links
// from the folder to the letter and from the letter to its children, and a packet name for each
// recipient by which it is found. Every folder knows how many letters it has and how many of them
// are unread; whatever changes that changes the counts in the same transaction.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

using Id = std::uint32_t;
inline constexpr Id kNone = 0;

// What holds once a change is acknowledged.
enum class Promise {
  None,      // the death of the process loses nothing, a power cut may
  PowerSafe  // the change is on the medium
};

// All letters of a folder as a window shows them, added up so that they must be read.
struct Listing {
  std::size_t letters = 0, subjectBytes = 0;
  std::uint64_t flags = 0, times = 0;
};

// Reads fields of an open engine's letters. One thread at a time may use it, beside other readers.
// It may show the letters as they were up to a thousand reads ago.
class Reader {
 public:
  virtual ~Reader() = default;
  virtual std::int32_t Flag(Id letter) = 0;
};

// An open store. Failures are exceptions. One thread at a time. Each change is a transaction of its
// own, but for those between Begin and Commit.
class Peer {
 public:
  virtual ~Peer() = default;

  virtual void Begin() = 0;
  virtual void Commit() = 0;

  virtual Id AddFolder(const std::string& name) = 0;
  // Within Begin and Commit only. Rising IDs.
  virtual Id AddLetter(Id folder, std::size_t number) = 0;
  // The same, with body and attachment as copies of a file, each in a new directory of its own.
  virtual Id AddLetterWithFiles(Id folder, std::size_t number, const std::string& source) = 0;
  virtual void SetFlag(Id letter, std::int32_t flag) = 0;
  virtual void Move(Id letter, Id folder) = 0;
  // Gives the recipient that bears the packet name another of the same length.
  virtual void Rename(const std::string& packet, const std::string& name) = 0;
  // With children and packet names.
  virtual void Delete(Id letter) = 0;

  virtual std::unique_ptr<Reader> NewReader() = 0;
  virtual std::string SubjectOf(Id letter) = 0;
  virtual Listing List(Id folder) = 0;
  // The letter to whose recipient the packet name belongs; kNone when it is nobody's.
  virtual Id FindPacket(const std::string& packet) = 0;
  virtual std::uint32_t Unread(Id folder) = 0;
};

// Opens the store in the directory, which exists; a new one when it is empty.
std::unique_ptr<Peer> OpenMs(const std::string& directory, Promise promise);
std::unique_ptr<Peer> OpenSqlite(const std::string& directory, Promise promise);
std::unique_ptr<Peer> OpenLmdb(const std::string& directory, Promise promise);

struct Engine {
  const char* name;
  std::unique_ptr<Peer> (*open)(const std::string&, Promise);
};
inline constexpr std::array<Engine, 3> kEngines{
    {{"ms", OpenMs}, {"sqlite", OpenSqlite}, {"lmdb", OpenLmdb}}};
