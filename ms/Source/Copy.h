// A copy of a letter in the making.
#pragma once

#include <optional>
#include <utility>

#include "Doc.h"
#include "Folder.h"
#include "LetterSnapshot.h"

// Takes back what was made unless Keep is called. Until Finish the copy lacks bit Complete, so that
// a repair removes it if nobody lives to take it back; and bit Incoming, since an incoming letter
// whose attachments come one by one moves its folder's counters wrongly. Finish is due once the
// copy has reached the medium: a batch of copies needs but two waits.
class CMSLetterCopy {
 public:
  // Takes the letter as it is now; raises what reading it raises.
  CMSLetterCopy(const CMSDocument& source, CMSFolder& target, bool missingFiles);
  ~CMSLetterCopy();
  CMSLetterCopy(const CMSLetterCopy&) = delete;
  CMSLetterCopy& operator=(const CMSLetterCopy&) = delete;

  // Within a batch on the target's store. Raises what CMSDocument::Clone does; to be destroyed
  // then.
  void Make();
  void Finish();
  CMSDocument Keep() { return std::move(m_copy); }

  const CMSDocument& Letter() const { return m_copy; }

 private:
  void Withdraw();

  std::optional<CMSLetterSnapshot> m_source;  // until the copy is made
  CMSFolder m_target;
  const bool m_missingFiles;
  const long m_withheld;
  CMSDocument m_copy;
  std::uint32_t m_body = 0;
};
