#include "Subject.h"

#include <algorithm>
#include <cstring>

#include "Records.h"

namespace {

constexpr char kMarker[] = {'L', 'S', 'T', 'm'};
constexpr std::size_t kField = sizeof(CMSDocumentData::LetterPath);
// The path's terminator and the marker stand between the path and the rest of the subject.
constexpr std::size_t kLead = 1 + sizeof kMarker;

std::size_t PathLength(const CMSDocumentData& record) {
  return ::strnlen(record.LetterPath, kField);
}

bool HasRoom(std::size_t pathLength) {
  return pathLength + kLead < kField;
}

bool HasRest(const CMSDocumentData& record) {
  const std::size_t length = PathLength(record);
  return HasRoom(length) &&
         std::memcmp(record.LetterPath + length + 1, kMarker, sizeof kMarker) == 0;
}

void ClearFrom(CMSDocumentData& record, std::size_t offset) {
  if (offset < kField) std::memset(record.LetterPath + offset, 0, kField - offset);
}

void PutRest(CMSDocumentData& record, std::string_view rest) {
  const std::size_t length = PathLength(record);
  if (!HasRoom(length)) return;
  char* const place = record.LetterPath + length + kLead;
  const std::size_t room = kField - length - kLead;
  std::memcpy(record.LetterPath + length + 1, kMarker, sizeof kMarker);
  std::memset(place, 0, room);
  std::memcpy(place, rest.data(), std::min(rest.size(), room - 1));
}

// Everything but the field's last byte, which stays the terminator of whatever gets cut.
void MoveRest(CMSDocumentData& record, std::size_t from, std::size_t to) {
  const std::size_t count = kField - 2 - std::max(from, to);
  std::memmove(record.LetterPath + to + 1, record.LetterPath + from + 1, count);
  if (to < from) ClearFrom(record, to + 1 + count);
}

}  // namespace

std::size_t CopySubject(const CMSDocumentData& record, char* to) {
  const std::size_t length = ::strnlen(record.Name, sizeof record.Name);
  std::memcpy(to, record.Name, length);
  if (length != kShortSubject || !HasRest(record)) return length;
  const std::size_t offset = PathLength(record) + kLead;
  const std::size_t rest = ::strnlen(record.LetterPath + offset, kField - offset);
  std::memcpy(to + length, record.LetterPath + offset, rest);
  return length + rest;
}

std::string SubjectOf(const CMSDocumentData& record) {
  char subject[kLongestSubject];
  return {subject, CopySubject(record, subject)};
}

void PutSubject(CMSDocumentData& record, const std::string& subject) {
  const std::size_t length = std::min(subject.size(), kShortSubject);
  std::memcpy(record.Name, subject.data(), length);
  record.Name[length] = 0;
  record.Name[kShortSubject] = 0;
  if (subject.size() > kShortSubject) {
    PutRest(record, std::string_view(subject).substr(kShortSubject));
  } else if (length == kShortSubject && HasRest(record)) {
    ClearFrom(record, PathLength(record) + 1);
  }
}

void PutLetterPath(CMSDocumentData& record, const std::string& path) {
  const std::size_t from = PathLength(record);
  const std::size_t to = path.size();
  if (!HasRoom(from)) {
    // Nothing but the old path was here; its end must not pass for the rest of a subject.
    ClearFrom(record, to + 1);
  } else if (from != to && HasRoom(to)) {
    MoveRest(record, from, to);
  }
  std::memcpy(record.LetterPath, path.c_str(), to + 1);
}
