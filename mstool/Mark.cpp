// mark: read, unread or deleted.
#include "CommandLine.h"
#include "Failure.h"
#include "Lookup.h"
#include "Open.h"
#include "kit/KitDateTime.h"

namespace tool {
namespace {

struct Options {
  std::vector<std::string> letters;
  bool read = false;
  bool unread = false;
  bool deleted = false;
};

void MarkRead(CMSDocument& letter) {
  CMSAttachment attachment;
  for (auto place = letter.GetFirstAttachmentPosition();
       letter.GetNextAttachment(attachment, place);) {
    const long flags = attachment.Flag();
    if ((flags & attachmentflag::Read) == 0) attachment.Flag(flags | attachmentflag::Read);
  }
  const long flags = letter.Flag();
  if ((flags & docflag::MarkedUnread) != 0) letter.Flag(flags & ~docflag::MarkedUnread);
}

// A letter that was never read is unread already and would be counted twice.
void MarkUnread(CMSDocument& letter) {
  if (!letter.IsUnread()) letter.Flag(letter.Flag() | docflag::MarkedUnread);
}

void MarkDeleted(CMSDocument& letter) {
  letter.Flag(letter.Flag() | docflag::Deleted);
  letter.DeletedTime(static_cast<long>(CKitDateTime::Now().Seconds()));
}

int Mark(const std::string& directory, const Options& options) {
  if (!options.read && !options.unread && !options.deleted) {
    throw Failure(kExitUsage, "say --read, --unread or --deleted");
  }
  OpenStore store(directory, Purpose::Write);
  std::vector<CMSDocument> letters;
  for (const std::string& number : options.letters) {
    letters.push_back(FindLetter(*store, number));
    if (options.unread && !letters.back().IsIncoming()) {
      throw Failure(kExitUsage,
                    "letter " + number + " is outgoing: only incoming letters are read");
    }
  }
  CMSBatch batch(*store);
  for (CMSDocument& letter : letters) {
    if (options.read) MarkRead(letter);
    if (options.unread) MarkUnread(letter);
    if (options.deleted) MarkDeleted(letter);
  }
  batch.Commit();
  return kExitDone;
}

}  // namespace

void AddMark(CommandLine& line) {
  const auto options = std::make_shared<Options>();
  Command command = line.Add("mark", "Mark letters as read, unread or deleted",
                             [&line, options] { return Mark(line.store, *options); });
  command.Words("ID", options->letters, "Numbers of letters");
  command.Flag("--read", options->read, "All of their files count as read");
  command.Flag("--unread", options->unread, "They count as unread", "--read");
  command.Flag("--deleted", options->deleted, "They are deleted but stay where they are");
}

}  // namespace tool
