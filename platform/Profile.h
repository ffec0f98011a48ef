// Private-profile (INI) files, with the behaviour of the Windows functions of that name.
//
// Names of sections and keys are compared without regard to the case of ASCII letters; the first
// match wins; blanks around names and values are trimmed; one pair of equal quotes around a value
// is stripped when it is read. Lines that are neither section nor key (comments, rubbish) and the
// order of all lines survive every write. A file that is not there reads as empty and is made by
// the first write; its directory is not.
//
// Writing: every change leaves either the old or the new file, whole, whatever happens. A value
// that keeps its length within one 512-byte sector is changed in place; anything else goes through
// a temporary file, synced, that takes the old one's place. A value that is there already is not
// written again. Read-modify-write is atomic between threads and between processes. Several keys
// that are written together each have either the old or the new value, whatever happens.
//
// Cost: a file is parsed once and again only after it changed on disk; a read is one look at the
// file's stamp and one search.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace platform {

// A key and its new value; none removes it.
struct ProfileKey {
  std::string name;
  std::optional<std::string> value;
};

// Who writes a section while it is being used. What this process alone writes is not read again
// just because somebody else might have changed it within the same tick of the clock.
enum class ProfileWriter { Anyone, ThisProcess };

// The value, cut to at most capacity - 1 characters, or fallback (trailing blanks trimmed) when
// there is none.
std::string ReadProfileString(const std::string& path, const std::string& section,
                              const std::string& key, const std::string& fallback,
                              std::size_t capacity, ProfileWriter writer = ProfileWriter::Anyone);
// The value's leading decimal number (sign allowed) or fallback when the key is absent; wraps to 32
// bits.
int ReadProfileInt(const std::string& path, const std::string& section, const std::string& key,
                   int fallback);
// A null value removes the key; a null key removes the whole section with all of its lines. A new
// key takes the place of the blank lines at the end of its section. False when the file cannot be
// written, or section is null.
bool WriteProfileString(const std::string& path, const char* section, const char* key,
                        const char* value);
// The same for several keys of one section, none of them twice, and at the cost of one write where
// that is possible. New ones are added in the order given.
bool WriteProfileKeys(const std::string& path, const std::string& section,
                      const std::vector<ProfileKey>& keys);
// Puts the given lines, each ended by a zero character and the last by two, in the place of all
// lines of the section, comments included. Its header stays; one that is not there is made for
// lines, not for none. False when the file cannot be written, or an argument is null.
bool WriteProfileSection(const std::string& path, const char* section, const char* lines);
// Returns when all earlier writes to the file have reached the medium; false when that failed.
bool FlushProfile(const std::string& path);

}  // namespace platform
