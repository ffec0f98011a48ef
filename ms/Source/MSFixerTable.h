// The master table of a repair: every slot in use of the four record files.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "MSFixer.h"

namespace MSF {

// Rows are ordered by ID, then type, then the rest; 16 bytes each. A change of order is made by
// building the rows anew, so that a walk never meets its own changes.
class CMasterTable {
 public:
  using CDBEntry = CFixer::CDBEntry;

  std::vector<CDBEntry>& Rows() { return m_rows; }
  const std::vector<CDBEntry>& Rows() const { return m_rows; }
  void Sort() { std::sort(m_rows.begin(), m_rows.end()); }
  void Insert(const CDBEntry& row) {
    m_rows.insert(std::upper_bound(m_rows.begin(), m_rows.end(), row), row);
  }
  // The first row with that ID and type; null when there is none.
  CDBEntry* FindObject(const CFixer::COID& object) {
    const CDBEntry least{object.ID, object.Type, 0, 0};
    const auto found = std::lower_bound(m_rows.begin(), m_rows.end(), least);
    const bool isIt = found != m_rows.end() && found->ID == object.ID && found->Type == object.Type;
    return isIt ? &*found : nullptr;
  }
  std::uint32_t Count(EObjectType type) const {
    return static_cast<std::uint32_t>(std::count_if(
        m_rows.begin(), m_rows.end(), [=](const CDBEntry& row) { return row.Type == type; }));
  }

 private:
  std::vector<CDBEntry> m_rows;
};

}  // namespace MSF
