// The letters that everything here is measured with: one document, two attachments of which only
// the records are kept, three recipients. Every second letter is unread.
#pragma once

#include <cstdint>
#include <string>

#include "ms/Source/MessageStore.h"

inline constexpr std::size_t kAttachments = 2;
inline constexpr std::size_t kRecipients = 3;
// How many entries one letter has in key indexes, relations and packet table together: each of its
// objects a key and a link, each recipient a packet name too.
inline constexpr std::size_t kEntriesPerLetter = 2 * (1 + kAttachments + kRecipients) + kRecipients;

// The packet name of one recipient. No two are equal, and they do not come in order.
std::string PacketName(std::size_t letter, std::size_t recipient);

std::string Subject(std::size_t letter);
// Incoming and complete. The client's bits in the uppermost byte tell letters apart; the lowest of
// them is set in the unread ones.
std::int32_t LetterFlag(std::size_t letter);
inline constexpr std::int32_t kUnreadBit = 0x1000000;

// Stores the letter with that number, as an import does: marked incoming and complete at the end.
// With a source, body and attachment are copies of that file.
CMSDocument PutLetter(CMSFolder& folder, std::size_t number, const std::string& source = "");
