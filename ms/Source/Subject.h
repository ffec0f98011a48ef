// How one record keeps a subject that is longer than its field: the part beyond the 100th character
// lies in the field of the letter path, behind the path's terminator and a four-byte marker.
//
// Plain functions on a record. None of them trusts the bytes: in a damaged record a text may lack
// its terminator.
#pragma once

#include <string>

struct CMSDocumentData;

// Characters that the subject's own field holds.
inline constexpr std::size_t kShortSubject = 100;
// No record holds more of one.
inline constexpr std::size_t kLongestSubject = 360;

// The whole subject, to a place that has room for the longest; answers its length.
std::size_t CopySubject(const CMSDocumentData& record, char* to);
std::string SubjectOf(const CMSDocumentData& record);
// Stores the subject, cut where the room behind the path ends. A subject that fits its own field
// leaves the other one as it is, unless it is just long enough that a reader would look there.
void PutSubject(CMSDocumentData& record, const std::string& subject);
// Stores the path, which must fit its field, and takes the rest of a long subject along as far as
// there is room behind the new path.
void PutLetterPath(CMSDocumentData& record, const std::string& path);
