// The bytes of a letter, for engines that take any bytes.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "bench/Letters.h"
#include "ms/Source/Records.h"

// The records of one letter after the other. Making them costs next to nothing: what letters have
// in common is filled in once.
struct LetterBytes {
  CMSDocumentData document{};
  std::array<CMSAttachmentData, kAttachments> attachments{};
  std::array<CMSRecipientData, kRecipients> recipients{};

  LetterBytes();
  void Become(std::size_t number);
};

// Writes the two files of a letter, each into a new directory of its own below base.
void WriteLetterFiles(const std::string& base, std::size_t number);
inline constexpr std::size_t kFileBytes = 20 * 1024;
