// Copies of letters, within a store and from one to another.
#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <vector>

#include "support/Engine.h"
#include "support/FaultyFiles.h"
#include "support/OpenStore.h"

#include "ms/Source/LetterSnapshot.h"
#include "ms/Source/StoreOf.h"
#include "platform/Profile.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

using Access = CMSFieldAccess;

template <class T>
std::string Bytes(const T& value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

template <class T>
T RecordOf(const CMSObject<T>& handle) {
  return Access::Read(handle, [](const T& record) { return record; });
}

// All bytes of a letter and its children, but for IDs and stored paths; the body by its position.
std::string ImageOf(const CMSDocument& document) {
  CMSLetterSnapshot letter = SnapshotOf(document);
  std::string image;
  for (auto& attachment : letter.attachments) {
    image += attachment.handle == document.Body() ? "body:" : "file:";
    attachment.record.DocID = 0;
    std::memset(attachment.record.InternalFileName, 0, sizeof attachment.record.InternalFileName);
    image += ReadBytes(attachment.path) + Bytes(attachment.record);
  }
  for (auto& recipient : letter.recipients) {
    recipient.record.DocID = 0;
    image += Bytes(recipient.record);
  }
  letter.record.ParentID = letter.record.BodyID = 0;
  return image + Bytes(letter.record);
}

// Whatever a copy could leave behind in a store.
std::string TraceOf(CMSMessageStore& store) {
  std::string trace =
      KitFormat("%u letters, %u links, %ld bytes, packet %d", store.GetDocumentCount(),
                static_cast<unsigned>(StoreOf(store.Root()).Relations().Size()),
                store.GetFullSize(), static_cast<bool>(store.FindRecipient("packet000001", false)));
  std::list<CMSFolder> folders;
  store.Root().Folders(folders);
  for (const CMSFolder& folder : folders)
    trace += KitFormat("; %d letters, %d unread, %d undelivered", folder.GetDocumentCount(),
                       folder.GetUnreadDocumentCount(), folder.GetUndeliveredDocumentCount());
  for (const auto& entry : fs::recursive_directory_iterator(store.GetMainFolder()))
    trace += entry.is_directory() ? "\n" + entry.path().string() : "";
  return trace;
}

class Copies : public testing::Test {
 protected:
  CMSFolder Folder(const std::string& name,
                   CMSDurabilityLevel level = CMSDurabilityLevel::Process) {
    CMSMessageStore store = OpenStore(dir / name, false, nullptr, level);
    CMSFolder folder = store.Root().OpenFolder(CKitString("folder"));
    return folder ? folder : store.Root().CreateFolder("folder", "", 0);
  }
  CMSDocument Letter(CMSFolder folder, long flags) {
    CMSDocument letter =
        folder.CreateDocument(std::string(150, 's'), "reg", "1.02.2021 10:11", "net", "wg", "user",
                              "station", "group", "name", flags, 77);
    letter.LetterPath("path");
    Access::Write(letter, [](CMSDocumentData& record) {
      record.CreationTime = record.CreationTime + 42;
      if ((record.Flag & docflag::Deleted) != 0) record.DeletedTime = 4711;
      std::memset(record.Key, 0x4B, sizeof record.Key);
      std::memset(record.KeyIntegrity, 0x49, sizeof record.KeyIntegrity);
      std::memset(record.KeyInit, 0x4E, sizeof record.KeyInit);
      std::memset(record.KeyGroup, 0x47, sizeof record.KeyGroup - 1);
      for (std::uint16_t i = 0; i < 5; ++i) record.CryptInfo[i] = static_cast<std::uint16_t>(i + 9);
    });
    CMSAttachment body = Attach(letter, "body", attachmentflag::Read);
    Attach(letter, "secret", attachmentflag::Encrypted | attachmentflag::Body);
    Attach(letter, "", attachmentflag::FileRemoved | attachmentflag::Read);
    body.Flag(attachmentflag::Read | attachmentflag::Body);
    body.Attributes(0x21);
    body.DateTime(CKitDateTime(1234567));
    body.Size(1000);
    AddRecipient(letter, "packet000001", recipientflag::Sent);
    AddRecipient(letter, "", recipientflag::Sent | recipientflag::Delivered);
    return letter;
  }
  CMSAttachment Attach(CMSDocument& letter, const std::string& bytes, long flag) {
    WriteBytes(dir / "source.txt", bytes);
    return letter.AddAttachment(dir / "source.txt", false, "shown", "given", flag);
  }
  static void AddRecipient(CMSDocument& letter, const char* packet, long flag) {
    const CMSRecipient recipient =
        letter.AddRecipient("", packet, "net", "ws", "wg", "u", "station", "group", "name", "note",
                            "receiver", "", "reader", "", flag, 3);
    Access::Write(recipient, [](CMSRecipientData& record) {
      record.PackTime = 1000000001, record.ReceiveTime = 1000000002, record.ReadTime = 59;
    });
  }
  std::string State(const std::string& name) const {
    return platform::ReadProfileString(dir / (name + "/ms3.db"), "Maintenance", "State", "", 100);
  }

  TempDir dir;
};

// Marks a new letter as one for audit. Names the events that show it with its final flags.
struct FlagWatch final : CMSDocumentListener {
  explicit FlagWatch(long flags) : final(flags) {}
  void OnAttachStore(CMSMessageStore&) override {}
  void OnDocumentRemoved(const CMSDocument&) override { events += 'r'; }
  void OnDocumentAdded(const CMSDocument& letter) override {
    Note(letter, 'a');
    if (events.size() == 1) CMSDocument(letter).Flag(letter.Flag() | docflag::Audit);
  }
  void OnDocumentChanged(const CMSDocument& letter) override { Note(letter, 'c'); }
  void Note(const CMSDocument& letter, char event) {
    events += letter.Flag() == final ? event : ' ';
  }
  const long final;
  std::string events;
};

TEST_F(Copies, A_clone_has_everything_but_its_ids_and_is_complete_last) {
  for (const long flags : {docflag::Complete, docflag::Complete | docflag::Incoming,
                           docflag::Incoming | docflag::MarkedUnread | docflag::Deleted}) {
    CMSFolder from = Folder("a"), to = Folder("b");
    const CMSDocument letter = Letter(from, flags);
    ASSERT_TRUE(letter.Flag() & docflag::Encrypted);
    const std::string image = ImageOf(letter);
    unsigned long id = 0;
    for (CMSFolder target : {from.Parent().CreateFolder("other", "", 0), to}) {
      const int unread = target.GetUnreadDocumentCount();
      const int undelivered = target.GetUndeliveredDocumentCount();
      const int letters = target.GetDocumentCount();
      CMSMessageStore store = target.MS();
      const long bytes = store.GetFullSize();
      FlagWatch watch(letter.Flag() | docflag::Audit);
      store.AddListener(&watch);
      CMSBatch batch(store);
      CMSDocument copy = letter.Clone(target, false);
      batch.Commit();
      store.RemoveListener(&watch);
      EXPECT_EQ(watch.events.substr(watch.events.find_first_not_of(' ')), "ac");
      copy.Flag(letter.Flag());
      EXPECT_EQ(ImageOf(copy), image);
      EXPECT_EQ(copy.Name().size(), 150u);
      EXPECT_EQ(copy.DeletedTime(), (flags & docflag::Deleted) != 0 ? 4711 : 0);
      EXPECT_EQ(target.GetDocumentCount(), letters + 1);
      EXPECT_EQ(target.GetUnreadDocumentCount() - unread, flags & docflag::Incoming ? 1 : 0);
      EXPECT_EQ(target.GetUndeliveredDocumentCount() - undelivered,
                flags & docflag::Incoming ? 0 : 1);
      EXPECT_EQ(store.GetFullSize() - bytes, 1006);
      if (to == target) id = copy.ID();
    }
    EXPECT_TRUE(to.MS().FindRecipient("packet000001", (flags & docflag::Incoming) != 0));
    EXPECT_EQ(ImageOf(letter), image);
    from = {}, to = {};
    EXPECT_EQ(State("b"), "Closed");
    EXPECT_EQ(ImageOf(Folder("b").OpenDocument(id)), image);
  }
}

TEST_F(Copies, A_missing_file_fails_without_a_trace_unless_allowed) {
  CMSFolder from = Folder("a"), to = Folder("b", CMSDurabilityLevel::Operation);
  CMSMessageStore store = to.MS();
  const CMSDocument letter = Letter(from, docflag::Complete);
  std::list<CMSAttachment> attachments;
  letter.Attachments(attachments);
  const CMSAttachment secret = *std::next(attachments.begin());
  const std::string before = TraceOf(store), stored = RecordOf(secret).InternalFileName;
  fs::rename(secret.InternalFileName().str(), dir / "outside");
  // Its own name, and what damage may have put there.
  for (const std::string& name : {stored, ""s, dir / "absent", "docs3.db"s}) {
    Access::Write(secret, [&](CMSAttachmentData& record) {
      std::memset(record.InternalFileName, 0, sizeof record.InternalFileName);
      name.copy(record.InternalFileName, sizeof record.InternalFileName);
    });
    EXPECT_EQ(CodeOf([&] { letter.Clone(to, false); }), 196) << name;
    EXPECT_EQ(TraceOf(store), before);
    EXPECT_THROW(CMSDocument(letter).AcceptAttachments(letter, nullptr), XKitFile);
    CMSDocument copy = letter.Clone(to, true);
    attachments.clear();
    copy.Attachments(attachments);
    EXPECT_EQ(ReadBytes(attachments.front().InternalFileName()), "body");
    attachments.pop_front();
    EXPECT_EQ(attachments.front().Flag(),
              attachmentflag::Encrypted | attachmentflag::Body | attachmentflag::FileRemoved);
    EXPECT_EQ(attachments.front().Size(), 6);
    EXPECT_EQ(copy.Flag(), docflag::Complete | docflag::Encrypted);
    to.DeleteDocument(copy);
    EXPECT_EQ(TraceOf(store), before);
  }
  attachments.clear(), to = {}, store = {};
  EXPECT_EQ(State("b"), "Closed");
}

TEST_F(Copies, Lost_handles_and_stores_that_take_no_changes_are_refused) {
  CMSFolder from = Folder("a"), to = Folder("b"), lost = to.CreateFolder("lost", "", 0);
  CMSDocument letter = Letter(from, 0), gone = Letter(from, 0);
  from.DeleteDocument(gone), to.DeleteFolder(lost);
  CMSMessageStore store = to.MS();
  const std::string before = TraceOf(store);
  const auto refuses = [](int code, const CMSDocument& source, CMSFolder target) {
    EXPECT_EQ(CodeOf([&] { source.Clone(target, true); }), code);
    EXPECT_EQ(CodeOf([&] { source.BlankCopy(target); }), code);
  };
  for (const CMSDocument& source : {gone, CMSDocument()}) refuses(6, source, to);
  for (const CMSFolder& target : {lost, CMSFolder()}) refuses(6, letter, target);
  EXPECT_EQ(TraceOf(store), before);
  to = lost = {}, store = {};
  store = OpenStore(dir / "b", true);
  refuses(19, letter, store.Root());
  EXPECT_EQ(TraceOf(store), before);
}

TEST_F(Copies, A_blank_copy_is_the_header_and_how_keys_are_made) {
  CMSFolder from = Folder("a"), to = Folder("b");
  const CMSDocument letter = Letter(from, 0x98);
  EXPECT_EQ(letter.DeletedTime(), 4711);
  const CMSDocumentData source = RecordOf(letter);
  const CMSDocument copy = letter.BlankCopy(to);
  const CMSDocumentData record = RecordOf(copy);
  EXPECT_EQ(copy.Flag(), 0x90);
  EXPECT_EQ(copy.Name(), letter.Name());
  EXPECT_EQ(copy.CreationTime(), letter.CreationTime());
  EXPECT_EQ(Bytes(record.CryptInfo), Bytes(source.CryptInfo));
  EXPECT_EQ(Bytes(record.SenderIDU) + record.RegNumber, Bytes(source.SenderIDU) + source.RegNumber);
  EXPECT_EQ(copy.LetterPath(), "");
  EXPECT_EQ(Bytes(record).substr(offsetof(CMSDocumentData, Key), 57), std::string(57, '\0'));
  EXPECT_EQ(copy.DeletedTime() + copy.GetAttachmentCount() + copy.GetRecipientCount(), 0);
}

TEST_F(Copies, Texts_that_do_not_end_are_cut_to_what_fits) {
  CMSFolder from = Folder("a"), to = Folder("b");
  const CMSDocument letter = Letter(from, 0);
  CMSLetterSnapshot parts = SnapshotOf(letter);
  const auto fill = [](auto& field) { std::memset(field, 'x', sizeof field); };
  Access::Write(letter, [&](auto& record) { fill(record.SenderUserName); });
  Access::Write(parts.attachments[0].handle, [&](auto& record) { fill(record.AttachmentName); });
  Access::Write(parts.recipients[0].handle, [&](auto& record) { fill(record.UserName); });
  const CMSDocument copy = letter.Clone(to, false);
  parts = SnapshotOf(copy);
  EXPECT_EQ(copy.SenderUserName(), std::string(56, 'x'));
  EXPECT_EQ(parts.attachments[0].handle.AttachmentName(), std::string(259, 'x'));
  EXPECT_EQ(parts.recipients[0].handle.UserName(), std::string(57, 'x'));
}

TEST_F(Copies, Recipients_are_accepted_with_or_without_their_state) {
  CMSFolder from = Folder("a"), to = Folder("b");
  const CMSDocument letter = Letter(from, 0);
  std::list<CMSRecipient> all, taken;
  letter.Recipients(all);
  CMSDocument target = to.CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
  EXPECT_EQ(to.GetUndeliveredDocumentCount(), 0);
  target.AcceptRecipients(letter, nullptr, false);
  EXPECT_FALSE(to.MS().FindRecipient("packet000001", false));
  EXPECT_EQ(to.GetUndeliveredDocumentCount(), 0);
  target.Recipients(taken);
  for (const CMSRecipient& recipient : taken) {
    CMSRecipientData expected = RecordOf(all.front()), data = RecordOf(recipient);
    expected.DocID = data.DocID;
    expected.PackTime = expected.ReceiveTime = expected.ReadTime = 0;
    expected.Flag = 0;
    for (char* text : {expected.TransEnvFileName, expected.Receiver, expected.Reader})
      std::memset(text, 0, std::strlen(text));
    EXPECT_EQ(Bytes(data), Bytes(expected));
  }
  all.pop_front();
  target.AcceptRecipients(letter, &all, true);
  EXPECT_EQ(target.GetRecipientCount(), 3);
  EXPECT_EQ(to.GetUndeliveredDocumentCount(), 1);
  const CMSRecipient found = to.MS().FindRecipient("packet000001", false);
  EXPECT_EQ(found.ReadTime() + found.PackTime(), 1000000001u + 59);
  target.AcceptRecipients(target, &taken, true);
  EXPECT_EQ(target.GetRecipientCount(), 4);
}

TEST_F(Copies, Attachments_are_accepted_with_size_and_time_and_children_alone_are_not_cloned) {
  CMSFolder from = Folder("a"), to = Folder("b");
  CMSDocument letter = Letter(from, 0);
  std::list<CMSAttachment> all, taken;
  letter.Attachments(all);
  CMSAttachment body = all.front();
  all.pop_front();
  CMSDocument target = to.CreateDocument("", "", "", "", "", "", "", "", "", 0, 0);
  target.AcceptAttachments(letter, &all);
  target.AcceptAttachments(target, nullptr);
  target.Attachments(taken);
  ASSERT_EQ(taken.size(), 2u);
  for (const CMSAttachment& copy : taken) {
    EXPECT_EQ(ReadBytes(copy.InternalFileName()), "body");
    EXPECT_EQ(copy.DateTime().Seconds() + static_cast<unsigned>(copy.Size()), 1234567u + 1000);
    EXPECT_EQ(copy.Flag(), body.Flag());
  }
  EXPECT_EQ(target.Size(), 2000u);
  const std::string before = ImageOf(target);
  CMSRecipient recipient = from.MS().FindRecipient("packet000001", false);
  EXPECT_FALSE(body.Clone(target) || recipient.Clone(target));
  EXPECT_EQ(ImageOf(target), before);
  // A child that names another letter is copied with the whole letter, but accepted by none.
  Access::Write(body, [](CMSAttachmentData& record) { record.DocID = 99; });
  Access::Write(recipient, [](CMSRecipientData& record) { record.DocID = 99; });
  EXPECT_EQ(letter.Clone(to, false).GetAttachmentCount(), 3);
  target.AcceptRecipients(letter, nullptr, true);
  EXPECT_EQ(target.GetRecipientCount(), 1);
  CMSFolder elsewhere = to.CreateFolder("elsewhere", "", 0);
  target.Move(elsewhere);
  EXPECT_EQ(target.Parent(), elsewhere);
}

TEST_F(Copies, Others_may_read_while_files_are_being_copied) {
  FaultyFiles files;
  const CMSDocument letter = Letter(Folder("a"), docflag::Complete);
  std::vector<std::future<int>> readers;
  files.Watch([&](const FaultyFiles::Call& made) {
    if (made.kind != call::kCopy) return;
    readers.push_back(std::async(std::launch::async, [&] { return letter.GetAttachmentCount(); }));
    EXPECT_EQ(readers.back().wait_for(std::chrono::seconds(10)), std::future_status::ready);
  });
  CMSFolder target = letter.Parent();
  letter.Clone(target, false);
  files.Watch(nullptr);
  EXPECT_EQ(readers.size(), 2u);
}

}  // namespace
