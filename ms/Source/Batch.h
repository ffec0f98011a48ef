// How much a change costs and what it promises.
#pragma once

#include "kit/Export.h"

class CMSMessageStore;
class CMSMessageStoreImp;

// What holds when a public call that changed a store returns. Whatever the level, a store that is
// cut off at any instant can be repaired to one that holds every letter acknowledged before the
// last promise.
enum class CMSDurabilityLevel {
  Immediate,  // every single flush has reached the medium
  Operation,  // everything that the call changed and that no repair could derive again is safe from
              // a power cut
  Process,  // the death of the process loses nothing; a power cut may cost what came after the last
            // close
};

// Widens one promise over many calls: between construction and Commit, calls of this thread on the
// store wait for no medium (level Operation); Commit waits once for all of them. Batches nest; only
// the outermost waits. Make and destroy a batch on one thread. It keeps the store open.
class MS_API CMSBatch {
 public:
  // XKitStatus 6 for an empty handle.
  explicit CMSBatch(const CMSMessageStore& store);
  CMSBatch(const CMSBatch&) = delete;
  CMSBatch& operator=(const CMSBatch&) = delete;
  // Commits what is left. A failure cannot be thrown from here: it is logged, and every later
  // change of the store is refused. Call Commit to see it.
  ~CMSBatch();

  // Gives the promise for all calls since construction or the last Commit, then goes on as a new
  // batch. XKitStatus 19 when the medium failed; the store then takes no further change.
  void Commit();

 protected:
  // Gathered: index entries are written in few pieces at the end. OneByOne: each as it comes, so
  // that one that fails can still be taken back.
  enum class Entries { Gathered, OneByOne };
  CMSBatch(const CMSMessageStore& store, Entries entries);

 private:
  void Pay();

  CMSMessageStoreImp* m_store;
};
