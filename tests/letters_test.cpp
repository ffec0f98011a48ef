// Letters and their recipients: fields, state, and what their folder is told of it.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "support/Engine.h"
#include "support/LogSink.h"
#include "support/OpenStore.h"

#include "ms/Source/ObjectAccess.h"
#include "ms/Source/Subject.h"

namespace {

constexpr long kIncoming = docflag::Incoming, kMarked = docflag::MarkedUnread;

// Notes the letters' events as "+" and "*", and every change of a folder with its two counts.
class Recorder : public CMSDocumentListener, public CMSFolderListener {
 public:
  void OnAttachStore(CMSMessageStore&) override {}
  void OnDocumentRemoved(const CMSDocument&) override { m_events += "- "; }
  void OnDocumentAdded(const CMSDocument&) override { m_events += "+ "; }
  void OnDocumentChanged(const CMSDocument&) override { m_events += "* "; }
  void OnFolderRemoved(const CMSFolder&) override {}
  void OnFolderAdded(const CMSFolder&) override {}
  void OnFolderChanged(const CMSFolder& folder) override {
    m_events += std::to_string(folder.GetUnreadDocumentCount()) + "/" +
                std::to_string(folder.GetUndeliveredDocumentCount()) + " ";
  }
  std::string Take() { return std::exchange(m_events, ""); }

 private:
  std::string m_events;
};

class Letters : public testing::Test {
 protected:
  CMSDocument NewLetter(long flags = 0, const char* regNumber = "") {
    return root.CreateDocument("Subject", regNumber, "", "", "", "", "", "", "", flags, 77);
  }
  static CMSAttachment Attach(CMSDocument& letter, long flag) {
    return letter.AddAttachment("gone.txt", false, "", "", flag | attachmentflag::FileRemoved);
  }
  static CMSRecipient Address(CMSDocument& letter, long flag, const char* envelope = "",
                              const char* group = "", const char* user = "") {
    return letter.AddRecipient("", envelope, "", "", group, user, "", "", "", "", "", "", "", "",
                               flag, 0);
  }
  void Listen() {
    root.GetUnreadDocumentCount();  // from here on there is a cache to adjust
    store.AddListener(static_cast<CMSFolderListener*>(&events));
    store.AddListener(static_cast<CMSDocumentListener*>(&events));
    events.Take();
  }
  template <class T>
  static void Patch(const CMSObject<T>& handle, LittleU32 T::*field, unsigned long value) {
    CMSFieldAccess::Write(handle,
                          [&](T& record) { record.*field = static_cast<std::uint32_t>(value); });
  }

  Engine files;
  CMSMessageStore store = OpenStore(files.dir.Path());
  CMSFolder root = store.Root();
  Recorder events;
};

// Any sequence of subjects and paths reads back as the rule of the shared room says.
TEST(Subject, Shares_the_room_behind_the_path) {
  std::mt19937 random(7);
  const auto length = [&](std::initializer_list<std::size_t> special, std::size_t most) {
    return random() % 2 == 0 ? special.begin()[random() % special.size()] : random() % (most + 1);
  };
  for (int round = 0; round < 200; ++round) {
    CMSDocumentData record{};
    std::string path, subject;
    for (int step = 0; step < 12; ++step) {
      const bool whole = path.size() < 255;
      if (random() % 2 == 0) {
        subject = std::string(length({0, 99, 100, 101, 353, 354, 355, 400}, 400), 'a');
        for (char& c : subject) c = static_cast<char>('a' + random() % 26);
        PutSubject(record, subject);
        subject.resize(std::min<std::size_t>(subject.size(), whole ? 354 - path.size() : 100));
      } else {
        path = std::string(length({0, 1, 100, 253, 254, 255, 259}, 259), 'p');
        PutLetterPath(record, path);
        const std::size_t most = whole && path.size() < 255 ? 354 - path.size() : 100;
        subject.resize(std::min(subject.size(), most));
      }
      ASSERT_EQ(SubjectOf(record), subject);
      ASSERT_EQ(CMSFieldAccess::TextOf(record.LetterPath).str(), path);
      ASSERT_EQ(record.RegNumber[0], 0);
      ASSERT_EQ(record.CreationTime, 0u);
    }
  }
  CMSDocumentData damaged{};
  std::memset(damaged.Name, 'x', sizeof damaged.Name);
  std::memset(damaged.LetterPath, 'x', sizeof damaged.LetterPath);
  EXPECT_EQ(SubjectOf(damaged), std::string(101, 'x'));
  damaged.Name[100] = 0;
  EXPECT_EQ(SubjectOf(damaged), std::string(100, 'x'));
  PutLetterPath(damaged, "short");
  EXPECT_EQ(SubjectOf(damaged), std::string(100, 'x'));
}

template <class Handle>
struct TextField {
  CKitString (Handle::*get)() const;
  void (Handle::*set)(const char*);
  std::size_t most;
};

// Each field takes what it can hold and one more is refused, and none spills into another.
template <class Handle>
void ExpectFieldsKeepTheirBounds(Handle handle, const std::vector<TextField<Handle>>& fields) {
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const auto letter = static_cast<char>('A' + i);
    const std::string most(fields[i].most, letter);
    (handle.*fields[i].set)(most.c_str());
    EXPECT_EQ(CodeOf([&] { (handle.*fields[i].set)((most + "!").c_str()); }), 87);
  }
  for (std::size_t i = 0; i < fields.size(); ++i)
    EXPECT_EQ((handle.*fields[i].get)().str(),
              std::string(fields[i].most, static_cast<char>('A' + i)));
}

TEST_F(Letters, Texts_fill_their_fields_and_longer_ones_are_refused) {
  using D = CMSDocument;
  CMSDocument letter = NewLetter();
  ExpectFieldsKeepTheirBounds<D>(letter,
                                 {{&D::RegNumber, &D::RegNumber, 100},
                                  {&D::LetterPath, &D::LetterPath, 259},
                                  {&D::ObsoleteSenderNetAddr, &D::ObsoleteSenderNetAddr, 16},
                                  {&D::SenderIDWG, &D::SenderIDWG, 13},
                                  {&D::SenderIDU, &D::SenderIDU, 8},
                                  {&D::SenderWSName, &D::SenderWSName, 50},
                                  {&D::SenderWGName, &D::SenderWGName, 50},
                                  {&D::SenderUserName, &D::SenderUserName, 56}});
  using A = CMSAttachment;
  ExpectFieldsKeepTheirBounds<A>(
      Attach(letter, 0),
      {{&A::Name, &A::Name, 200}, {&A::AttachmentName, &A::AttachmentName, 259}});
  using R = CMSRecipient;
  ExpectFieldsKeepTheirBounds<R>(Address(letter, 0),
                                 {{&R::TransEnvFileName, &R::TransEnvFileName, 259},
                                  {&R::ObsoleteNetAddr, &R::ObsoleteNetAddr, 16},
                                  {&R::IDWS, &R::IDWS, 9},
                                  {&R::IDWG, &R::IDWG, 13},
                                  {&R::IDU, &R::IDU, 8},
                                  {&R::WSName, &R::WSName, 99},
                                  {&R::WGName, &R::WGName, 57},
                                  {&R::UserName, &R::UserName, 57},
                                  {&R::Annotation, &R::Annotation, 255},
                                  {&R::Receiver, &R::Receiver, 57},
                                  {&R::Reader, &R::Reader, 57}});
  EXPECT_EQ(CodeOf([&] { letter.CreationData("31.02.2024 10:00"); }), 87);
  EXPECT_EQ(CodeOf([&] { NewLetter(0, std::string(101, 'n').c_str()); }), 87);
  EXPECT_EQ(CodeOf([&] { Address(letter, 0, "", "0123456789ABCD"); }), 87);
  EXPECT_EQ(store.GetDocumentCount(), 1u);
  EXPECT_EQ(letter.GetRecipientCount(), 1);
}

std::string Joined(std::initializer_list<CKitString> texts) {
  std::string all;
  for (const CKitString& text : texts) all += text.str() + "|";
  return all;
}

TEST_F(Letters, Each_text_of_a_creation_goes_to_its_own_field) {
  CMSDocument l = root.CreateDocument("Sub", "Reg", "21.02.2003 04:05", "Net", "WG", "U", "WSN",
                                      "WGN", "UN", 0x8, 5);
  EXPECT_EQ(
      Joined({l.Name(), l.RegNumber(), l.CreationData(), l.ObsoleteSenderNetAddr(), l.SenderIDWG(),
              l.SenderIDU(), l.SenderWSName(), l.SenderWGName(), l.SenderUserName()}),
      "Sub|Reg|21.02.2003 04:05|Net|WG|U|WSN|WGN|UN|");
  EXPECT_EQ(l.Flag() * 10 + l.RegNum(), 85);
  const CKitString packed = "16.07.2008 09:10", got = "11.12.2013 14:15", read = "16.01.2018 19:20";
  const CMSRecipient r = l.AddRecipient(packed, "Env", "Net", "S", "WG", "U", "WSN", "WGN", "UN",
                                        "Note", "Rec", got, "Rea", read, 0x100, 6);
  const CMSRecipient::CMSRcptData d(packed, "Env", "Net", "S", "WG", "U", "WSN", "WGN", "UN",
                                    "Note", "Rec", got, "Rea", read);
  const std::string all = Joined({packed, got, read}) + "Env|Net|S|WG|U|WSN|WGN|UN|Note|Rec|Rea|";
  EXPECT_EQ(Joined({r.PackDateTime(), r.ReceiveDateTime(), r.ReadDateTime(), r.TransEnvFileName(),
                    r.ObsoleteNetAddr(), r.IDWS(), r.IDWG(), r.IDU(), r.WSName(), r.WGName(),
                    r.UserName(), r.Annotation(), r.Receiver(), r.Reader()}),
            all);
  EXPECT_EQ(Joined({d.PackDate, d.ReceiveDate, d.ReadDate, d.TransEnvFileName, d.ObsoleteNetAddr,
                    d.IDWS.Text(), d.IDWG.Text(), d.IDU.Text(), d.WSName, d.WGName, d.UserName,
                    d.Annotation, d.Receiver, d.Reader}),
            all);
  EXPECT_EQ(r.Flag() + r.Category(), 0x106);
}

TEST_F(Letters, Registration_numbers) {
  const auto distilled = [&](const char* text) {
    return NewLetter(kIncoming, text).DistillRegNumber();
  };
  EXPECT_EQ(distilled("AB-0123/45x"), 45);
  EXPECT_EQ(distilled("12345678901234567"), static_cast<long>(45678901234567));
  EXPECT_EQ(distilled("none"), 0);
  EXPECT_EQ(NewLetter(kIncoming, "R-").UniversalRegNumber().str(), "R-");
  EXPECT_EQ(NewLetter(0, "R-").UniversalRegNumber().str(), "R-77");
  EXPECT_EQ(NewLetter(0, "R-12").DistillRegNumber(), 77);
}

TEST_F(Letters, Turning_a_letter_round_tells_its_new_state_before_the_end_of_the_old_one) {
  CMSDocument letter = NewLetter(kIncoming);
  Attach(letter, 0);
  Address(letter, 0x4);
  Listen();
  letter.Flag(docflag::Encrypted);
  EXPECT_EQ(events.Take(), "1/1 0/1 + * ");
  EXPECT_EQ(letter.Flag(), 0);
  letter.Flag(kIncoming);
  EXPECT_EQ(events.Take(), "1/1 1/0 + * ");
  letter.SetActionFlag(kMarked);  // counted beside the unread attachment
  EXPECT_EQ(events.Take(), "2/0 + * ");
  EXPECT_TRUE(letter.IsMarkedAsUnread() && letter.IsAction(kMarked | kIncoming));
  EXPECT_FALSE(letter.IsAction(kMarked | 0x20));
  letter.Flag(kIncoming);
  letter.Flag(kIncoming | 0x40);
  EXPECT_EQ(events.Take(), "1/0 + * + * ");
  letter.RegNum(3);
  EXPECT_EQ(events.Take(), "* ");
}

TEST_F(Letters, Only_the_last_unread_attachment_makes_a_letter_read) {
  CMSDocument letter = NewLetter(kIncoming);
  CMSAttachment first = Attach(letter, 0), second = Attach(letter, 0);
  Attach(letter, attachmentflag::NotCounted);
  Listen();
  first.Flag(first.Flag() | attachmentflag::Read);
  EXPECT_EQ(events.Take(), "");
  second.Flag(second.Flag() | attachmentflag::Read);
  EXPECT_EQ(events.Take(), "0/0 ");
  EXPECT_FALSE(letter.IsUnread());
  second.Flag(0);
  EXPECT_EQ(events.Take(), "1/0 ");
  CMSDocument marked = NewLetter(kIncoming | kMarked);
  CMSAttachment last = Attach(marked, 0);
  events.Take();
  marked.DeleteAttachment(last);
  EXPECT_EQ(events.Take(), "* ");  // marked as it is, it still counts
  root.DeleteDocument(marked);
  events.Take();
  letter.DeleteAttachment(second);
  EXPECT_EQ(events.Take(), "* 0/0 ");
  first.DateTime(CKitDateTime(5));
  EXPECT_EQ(events.Take(), "* ");
  CMSDocument::CMSDocAttachmentInfo info;
  letter.AttachmentInfo(info);
  EXPECT_EQ(info.encryption * 100 + info.signature * 10 + info.read, 221u);
  Attach(letter, attachmentflag::Encrypted | attachmentflag::Signed);
  Attach(letter, attachmentflag::NotCounted | attachmentflag::Encrypted);
  letter.AttachmentInfo(info);
  EXPECT_EQ(info.encryption * 100 + info.signature * 10 + info.read, 333u);
  EXPECT_TRUE(Attach(letter, attachmentflag::SignedOtherwise).IsSigned());
  EXPECT_FALSE(first.IsSigned());
}

TEST_F(Letters, Delivery_follows_the_recipients) {
  CMSDocument letter = NewLetter();
  Listen();
  CMSRecipient first = Address(letter, 0x4);
  EXPECT_EQ(events.Take(), "0/1 ");
  CMSRecipient second = Address(letter, 0x4);
  first.Flag(0x24);
  EXPECT_EQ(events.Take(), "");
  second.Flag(0x20);
  EXPECT_EQ(events.Take(), "0/0 ");
  second.Flag(0x4);
  letter.DeleteRecipient(second);
  EXPECT_EQ(events.Take(), "0/1 0/0 ");
  EXPECT_FALSE(second);
  CMSDocument::CMSDocRcptInfo info;
  Address(letter, 0x20);
  letter.RcptInfo(info);
  EXPECT_EQ(info.bit4 * 100 + info.bit8 * 10 + info.bit20, 321u);
  EXPECT_EQ(letter.GetRecipientCount(), 2);
  for (const long flag : {0x200L, 0x40L}) {
    Address(letter, flag);
    letter.RcptInfo(info);
    EXPECT_EQ(info.bit40 * 10 + info.bit200, flag == 0x200 ? 23u : 33u);
  }
  letter.Flag(kIncoming);
  // To an incoming letter it is all one.
  events.Take();
  CMSRecipient late = Address(letter, 0x4);
  late.Flag(0x20);
  late.Flag(0x4);
  letter.DeleteRecipient(late);
  EXPECT_EQ(events.Take(), "");
}

TEST_F(Letters, Current_recipient_categories_order_and_place) {
  CMSDocument letter = NewLetter();
  CMSRecipient other = Address(letter, 0, "", "G", "U1");
  const LogSink log;
  EXPECT_FALSE(letter.GetCurrentRecipient());
  EXPECT_NE(log.events.find("1|Unable to find current recipient for document #x00000002|Doc:"),
            std::string::npos);
  CMSRecipient current = Address(letter, recipientflag::Current, "", "G", "U2");
  EXPECT_EQ(letter.GetCurrentRecipient(), current);
  letter.SetCategory("G", "U2", 9);
  EXPECT_EQ(current.Category() * 10 + other.Category(), 90);
  current.PackDateTime("24.12.2030 23:59");
  EXPECT_EQ(current.PackDateTime() + current.ReadDateTime(), "24.12.2030 23:59");
  const CMSDocument later = NewLetter();
  store.SetCmpDocs([](const CMSDocument& a, const CMSDocument& b) { return a.ID() > b.ID(); });
  EXPECT_TRUE(later < letter && later > letter);
  CMSFolder below = root.CreateFolder("A", "", 0).CreateFolder("B", "", 0);
  letter.Move(below);
  EXPECT_EQ(letter.GetLocation(), "A/B");
}

TEST_F(Letters, Damaged_links_and_counts_are_reported_and_nothing_else_happens) {
  CMSDocument letter = NewLetter(kIncoming), other = NewLetter();
  CMSAttachment attachment = Attach(letter, attachmentflag::Body), lost = Attach(letter, 0);
  CMSRecipient recipient = Address(letter, 0);
  other.DeleteAttachment(attachment);
  other.DeleteRecipient(recipient);
  Patch(attachment, &CMSAttachmentData::DocID, other.ID());
  EXPECT_EQ(letter.GetAttachmentCountEx(0, attachmentflag::NotCounted), 2);
  CMSFieldAccess::Write(letter, [](CMSDocumentData& record) { record.AttachmentCount = 9; });
  Patch(attachment, &CMSAttachmentData::DocID, letter.ID());
  EXPECT_EQ(letter.GetAttachmentCount(), 2);
  Patch(lost, &CMSAttachmentData::DocID, 4711);
  lost.Flag(attachmentflag::Encrypted);
  EXPECT_EQ(letter.Flag(), kIncoming);
  EXPECT_TRUE(attachment && recipient);
  EXPECT_EQ(files.Reports(),
            "CMSDocument::DeleteAttachment detected mismatch in parent-child IDs\n"
            "CMSDocument::DeleteRecipient detected mismatch in parent-child IDs\n"
            "CMSDocument::GetNextAttachment detected mismatch in parent-child IDs\n"
            "CMSDocument::GetAttachmentCount detected mismatch in real and expected number of "
            "letter attachments\n"
            "CMSDocument::OnAttachmentFlagChanged detected mismatch in parent-child IDs\n");
}

}  // namespace
