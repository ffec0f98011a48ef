// Stores to measure with. Each holds one folder, with all its letters.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ms/Source/MessageStore.h"
#include "tests/support/OpenStore.h"
#include "tests/support/TempDir.h"

struct PreparedStore {
  TempDir directory;
  std::vector<unsigned long> letters;  // IDs, in the order of the letters' numbers
};

// The closed store of that size: made when first asked for, removed when the program ends. Open it
// for anything that leaves the number of its letters as it is.
PreparedStore& Prepared(std::size_t letters);

// A copy of a prepared store, to be changed at will. It is on the medium when the constructor
// returns, so that what is measured afterwards does not wait for the copying.
class ScratchStore {
 public:
  explicit ScratchStore(const PreparedStore& original);
  const std::string& Path() const { return m_directory.Path(); }

 private:
  TempDir m_directory;
};

CMSFolder LettersFolder(CMSMessageStore& store);

// Gives the values in an order of chance (the same in every run), again and again.
class RandomOrder {
 public:
  explicit RandomOrder(std::vector<unsigned long> values);
  unsigned long Next() {
    if (m_next == m_values.size()) m_next = 0;
    return m_values[m_next++];
  }

 private:
  std::vector<unsigned long> m_values;
  std::size_t m_next = 0;
};
