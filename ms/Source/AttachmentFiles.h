// Where attachment files lie and how records name them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class CMSDurability;

namespace attachmentfiles {

// A path as a record stores it: one inside the store directory is kept relative to it, with "\"
// between components; any other is kept whole.
std::string ToStored(const std::string& storeDirectory, const std::string& path);
// The full native path of a stored name. "", for there is no such file, of a name that would lead
// elsewhere than it says: a relative one with "..", or through a link or to one; a whole path of
// another platform, or with "..".
std::string ToFull(const std::string& storeDirectory, const std::string& stored);

// Where a stored name leads, as text alone.
enum class Place {
  Inside,   // to a file in a directory below the store's
  Outside,  // to a file of the client's own, by a whole path of this or another platform
  Nowhere   // it is no name that a store gives: "..", no directory, half of a path, control bytes
};
Place PlaceOf(const std::string& storeDirectory, const std::string& stored);
// Of a name that leads inside: relative to the store, with "\" between components.
std::string Canonical(const std::string& storeDirectory, const std::string& stored);

// The stored name of an attachment without a file. No other object has the ID, and no directory
// that is made for a file has a name of that length: it is taken without a look at the disk.
std::string NameWithoutFile(std::uint32_t id, const std::string& name);

// Makes a directory of its own for one file of that name; answers the path that it will have.
std::string MakePlace(const std::string& storeDirectory, const std::string& name,
                      CMSDurability& durability);

struct SourceInfo {
  std::int32_t attributes = 0;
  std::uint32_t modified = 0;
  std::int32_t length = 0;
};
// XKitFile when there is no such file; XKitStatus 87 when it is longer than a record can tell (2
// GiB - 1).
SourceInfo Describe(const std::string& source);

// Copies the file to target with plain attributes and books the debt to the medium. A failed copy
// leaves no target (an existing one is overwritten only by a whole copy). A missing directory of
// the target is made.
void CopyIn(const std::string& source, const std::string& target, CMSDurability& durability);
// Bytes of the file; 0 when there is none.
std::uint64_t Length(const std::string& path);
// An empty file, booked likewise.
void CreateEmpty(const std::string& target, CMSDurability& durability);
// Removes the file and then, from the deepest up, the directories of its store-relative path that
// are empty. A file outside the store, by a whole path of the client's own, is removed alone.
// Nothing happens when it is gone already, or when a directory on the way is a link.
void Remove(const std::string& storeDirectory, const std::string& stored,
            CMSDurability& durability);
// All of them; a file that cannot be removed does not keep the others, and is thrown last.
void Remove(const std::string& storeDirectory, const std::vector<std::string>& stored,
            CMSDurability& durability);

}  // namespace attachmentfiles
