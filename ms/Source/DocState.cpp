// The state of a letter: its flags, whether it is unread or undelivered, and how its folder learns
// of a change.
#include "DocRecord.h"
#include "DocWalk.h"

using Access = CMSFieldAccess;
using Record = CMSDocumentData;

namespace {

// What a folder is told: the kind of state, and as its new value either the kind or 0.
constexpr int kUnread = 1;
constexpr int kUndelivered = 2;
constexpr int kCleared = 0;

bool IsRead(const CMSAttachment& attachment) {
  return (attachment.Flag() & attachmentflag::Read) != 0;
}

// Some counted attachment, other than the one given, is not read.
bool HasUnread(const CMSDocument& document, const CMSAttachment& except) {
  return AnyAttachment(document, 0, attachmentflag::NotCounted,
                       [&](const CMSAttachment& it) { return it != except && !IsRead(it); });
}

bool HasUndelivered(const CMSDocument& document, const CMSRecipient& except) {
  return AnyRecipient(document,
                      [&](const CMSRecipient& it) { return it != except && it.IsUndelivered(); });
}

// A child may only change the totals of its own letter.
template <class Handle>
bool IsChild(const CMSDocument& document, const Handle& child, const char* text) {
  if (child.DocID() == document.ID()) return true;
  Report(StoreOf(document), text);
  return false;
}

}  // namespace

bool CMSDocument::IsIncoming() const {
  return (Flag() & docflag::Incoming) != 0;
}
bool CMSDocument::IsOutgoing() const {
  return !IsIncoming();
}

bool CMSDocument::IsMarkedAsUnread() const {
  constexpr long kBoth = docflag::Incoming | docflag::MarkedUnread;
  return (Flag() & kBoth) == kBoth;
}

bool CMSDocument::IsUnread() const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  return IsIncoming() && HasUnread(*this, CMSAttachment());
}

bool CMSDocument::IsUndelivered() const {
  const CSharedLocker guard(StoreOf(*this).Lock());
  return IsOutgoing() && HasUndelivered(*this, CMSRecipient());
}

void CMSDocument::SetActionFlag(int bits) {
  StoreOf(*this).Change([&] { Flag(Flag() | bits); });
}

bool CMSDocument::IsAction(int bits) const {
  return (static_cast<int>(Flag()) & bits) == bits;
}

void CMSDocument::Flag(long flags) {
  CMSMessageStoreImp& store = StoreOf(*this);
  store.Change([&] {
    const long old = Flag();
    const long now = (flags & ~docflag::Encrypted) | (old & docflag::Encrypted);
    const bool turns = ((old ^ now) & docflag::Incoming) != 0;
    const bool wasUnread = turns && IsUnread();
    const bool wasUndelivered = turns && IsUndelivered();
    Access::Write(*this, [&](Record& record) { record.Flag = static_cast<std::int32_t>(now); });
    if (turns) {
      NotifyTurned(wasUnread, wasUndelivered);
    } else {
      NotifyMarked(old);
    }
    store.Listeners().DocumentAdded(*this);
    store.Listeners().DocumentChanged(*this);
  });
}

// The direction changed: the state that the letter has now goes first, the one it had follows.
void CMSDocument::NotifyTurned(bool wasUnread, bool wasUndelivered) const {
  if (IsUnread()) NotifyParent(kUnread, kUnread);
  if (wasUndelivered) NotifyParent(kCleared, kUndelivered);
  if (IsUndelivered()) NotifyParent(kUndelivered, kUndelivered);
  if (wasUnread) NotifyParent(kCleared, kUnread);
}

// The mark is told whatever the attachments say; they tell of themselves.
void CMSDocument::NotifyMarked(long oldFlags) const {
  const long now = Flag();
  if ((now & docflag::Incoming) == 0 || ((now ^ oldFlags) & docflag::MarkedUnread) == 0) return;
  NotifyParent((now & docflag::MarkedUnread) != 0 ? kUnread : kCleared, kUnread);
}

void CMSDocument::NotifyParent(int state, int kind) const {
  // A letter whose folder is lost has nobody to tell; a repair finds it a new one.
  if (const CMSFolder parent = Parent()) parent.OnDocumentStateChanged(*this, state, kind);
}

void CMSDocument::NotifyRead() const {
  NotifyParent(kCleared, kUnread);
}
void CMSDocument::NotifyUndelivered(bool undelivered) const {
  NotifyParent(undelivered ? kUndelivered : kCleared, kUndelivered);
}

void CMSDocument::IncRecipientCount() {
  Access::Write(*this, [](Record& r) { r.RecipientCount = WrappedSum(r.RecipientCount, 1); });
}
void CMSDocument::DecRecipientCount() {
  Access::Write(*this, [](Record& r) { r.RecipientCount = WrappedSum(r.RecipientCount, -1); });
}

void CMSDocument::OnAttachmentSizeChanged(CMSAttachment& attachment, long change) {
  if (!IsChild(*this, attachment,
               "CMSDocument::OnAttachmentSizeChanged detected mismatch in parent-child IDs")) {
    return;
  }
  if (change == 0) return;
  Access::Write(*this, [&](Record& record) {
    record.Size = static_cast<std::uint32_t>(record.Size) + static_cast<std::uint32_t>(change);
  });
  StoreOf(*this).OnAttachmentSizeChanged(change);
}

void CMSDocument::OnAttachmentTimeChanged(CMSAttachment& attachment) {
  if (!IsChild(*this, attachment,
               "CMSDocument::OnAttachmentTimeChanged detected mismatch in parent-child IDs")) {
    return;
  }
  Announce(*this);
}

void CMSDocument::OnAttachmentFlagChanged(CMSAttachment& attachment, long oldFlag) {
  if (!IsChild(*this, attachment,
               "CMSDocument::OnAttachmentFlagChanged detected mismatch in parent-child IDs")) {
    return;
  }
  const long changed = attachment.Flag() ^ oldFlag;
  if ((changed & attachmentflag::Body) != 0) StoreBody(attachment);
  if ((changed & attachmentflag::Encrypted) != 0) {
    const bool encrypted = HasEncrypted(CMSAttachment());
    Access::Write(*this, [&](Record& record) {
      encrypted ? NoteEncryption(record) : ForgetEncryption(record);
    });
  }
  NotifyReadBy(attachment, oldFlag);
}

// Tells the folder when it is this attachment alone by which the letter is read or not.
void CMSDocument::NotifyReadBy(const CMSAttachment& attachment, long oldFlag) const {
  const long changed = attachment.Flag() ^ oldFlag;
  if ((changed & attachmentflag::Read) == 0 || !IsIncoming()) return;
  if (HasUnread(*this, attachment)) return;
  NotifyParent(IsRead(attachment) ? kCleared : kUnread, kUnread);
}

void CMSDocument::StoreBody(const CMSAttachment& attachment) {
  const auto id = static_cast<std::uint32_t>(attachment.ID());
  const bool isBody = (attachment.Flag() & attachmentflag::Body) != 0;
  Access::Write(*this, [&](Record& record) {
    if (isBody) {
      record.BodyID = id;
    } else if (record.BodyID == id) {
      record.BodyID = 0;
    }
  });
}

bool CMSDocument::HasEncrypted(const CMSAttachment& except) const {
  constexpr long kEncrypted = attachmentflag::Encrypted;
  return AnyAttachment(*this, kEncrypted, kEncrypted,
                       [&](const CMSAttachment& it) { return it != except; });
}

void CMSDocument::OnRecipientFlagChanged(CMSRecipient& recipient, long oldFlag) {
  if (!IsChild(*this, recipient,
               "CMSDocument::OnRecipientFlagChanged detected mismatch in parent-child IDs")) {
    return;
  }
  const bool undelivered = recipient.IsUndelivered();
  if (!IsOutgoing() || CMSRecipient::IsUndelivered(oldFlag) == undelivered) return;
  if (HasUndelivered(*this, recipient)) return;
  NotifyUndelivered(undelivered);
}
