// Puts letters into a store.
#pragma once

#include <ms/MessageStore.h>

#include <cstdint>
#include <filesystem>

#include "Mail.h"

namespace tool {

// What became of the texts of the letters written so far.
struct WriteCounts {
  std::uint64_t cutTexts = 0;
  std::uint64_t undated = 0;  // letters without a date that a store can hold
};

// How a letter was kept where it comes from.
struct LetterState {
  bool read = false;
  bool deleted = false;
};

class LetterWriter {
 public:
  // Makes a private directory for files on their way into the store; it goes with this object.
  LetterWriter();
  ~LetterWriter();
  LetterWriter(const LetterWriter&) = delete;
  LetterWriter& operator=(const LetterWriter&) = delete;

  // Writes the letter whole or, when an exception ends it, not at all.
  void Write(CMSFolder& folder, const Mail& mail, const LetterState& state);
  const WriteCounts& Counts() const { return m_counts; }
  // A text for a field of so many bytes, counted when something is cut off.
  std::string Fit(const std::string& text, std::size_t bytes);

 private:
  CMSDocument Create(CMSFolder& folder, const Mail& mail);
  void Fill(CMSDocument& letter, const Mail& mail, bool read);
  void Attach(CMSDocument& letter, const MailPart& part, long flags);
  std::string Date(const Mail& mail);

  std::filesystem::path m_directory;
  WriteCounts m_counts;
};

// The packet name of a letter's n-th recipient (from 0): 12 characters that no other recipient of
// the store has, rising with the letters.
std::string PacketName(unsigned long letter, std::size_t recipient);

}  // namespace tool
