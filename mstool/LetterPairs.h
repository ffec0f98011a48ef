// Which letter of one store stands for which of another.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "LetterFields.h"

namespace tool {

// What is remembered of a letter. Texts are told apart by numbers made of them, 0 for the empty
// one.
struct LetterRecord {
  std::uint32_t id = 0;
  std::uint32_t path = 0;  // equal for folders of equal path, in both stores
  std::uint32_t created = 0;
  std::size_t sender = 0;
  std::size_t subject = 0;
  std::size_t registration = 0;
  LetterDigest digest{};
};

// Indices into the two lists.
struct LetterPairs {
  std::size_t equal = 0;  // pairs of equal folder and content
  std::vector<std::pair<std::size_t, std::size_t>> different;
  std::vector<std::size_t> onlyStore;
  std::vector<std::size_t> onlyTarget;
};

// Equal letters first; then, for what is left, the likeliest partner: equal content elsewhere, and
// letters that agree in two of sender, time and subject, or in their registration number, in the
// same folder rather than in another.
LetterPairs PairLetters(const std::vector<LetterRecord>& store,
                        const std::vector<LetterRecord>& target);

}  // namespace tool
