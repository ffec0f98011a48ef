// The files in a store's directory, and which records name them.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace MSF {

// Every regular file below the directory but the store's own: its eleven files, the marks and the
// journal of maintenance and backup, what repairs have kept aside. Links are not followed: what
// lies behind one is not the store's.
//
// A file takes 16 bytes; its name is known by a hash.
class CFileTree {
 public:
  // goOn is asked now and then with the number of files found so far, and may throw.
  CFileTree(const std::string& storeDirectory, std::function<void(std::uint64_t)> goOn);

  enum class Claim {
    Made,     // the file is the record's
    Missing,  // there is no such file
    Taken     // it is another record's
  };
  // stored: a path below the store as records have it. slot: the record's. owner: the slot of the
  // record that has it, when it is Taken.
  Claim Take(const std::string& stored, std::uint32_t slot, std::uint32_t& owner);
  bool Has(const std::string& stored) const { return Find(stored) != nullptr; }
  // Takes the file from its owner.
  void Pass(const std::string& stored, std::uint32_t slot);

  // The paths, as records would have them, of the files that nobody claims, in byte order.
  std::vector<std::string> Unclaimed() const;

 private:
  struct CEntry {
    std::uint64_t hash;
    std::uint32_t owner;
    bool operator<(const CEntry& other) const { return hash < other.hash; }
  };
  using Visit = std::function<void(const std::string& stored)>;
  void Walk(const std::string& directory, const std::string& stored, const Visit& visit) const;
  CEntry* Find(const std::string& stored);
  const CEntry* Find(const std::string& stored) const;

  const std::string m_directory;
  std::vector<CEntry> m_entries;  // sorted
};

}  // namespace MSF
