#include "Objects.h"

namespace tool {

Json FolderJson(const CMSFolder& folder) {
  return {
      {"ID", folder.ID()},
      {"ParentID", folder.ParentID()},
      {"Name", folder.Name().str()},
      {"Props", folder.Props().str()},
      {"Type", folder.Type()},
      {"FullName", folder.FullName().str()},
      {"GetDocumentCount", folder.GetDocumentCount()},
      {"GetFolderCount", folder.GetFolderCount()},
      {"GetUnreadDocumentCount", folder.GetUnreadDocumentCount()},
      {"GetUndeliveredDocumentCount", folder.GetUndeliveredDocumentCount()},
  };
}

Json DocumentJson(const CMSDocument& document) {
  return {
      {"ID", document.ID()},
      {"ParentID", document.ParentID()},
      {"BodyID", document.BodyID()},
      {"Name", document.Name().str()},
      {"RegNumber", document.RegNumber().str()},
      {"UniversalRegNumber", document.UniversalRegNumber().str()},
      {"RegNum", document.RegNum()},
      {"LetterPath", document.LetterPath().str()},
      {"CreationTime", document.CreationTime()},
      {"ObsoleteSenderNetAddr", document.ObsoleteSenderNetAddr().str()},
      {"SenderIDWG", document.SenderIDWG().str()},
      {"SenderIDU", document.SenderIDU().str()},
      {"SenderWSName", document.SenderWSName().str()},
      {"SenderWGName", document.SenderWGName().str()},
      {"SenderUserName", document.SenderUserName().str()},
      {"Flag", document.Flag()},
      {"DeletedTime", document.DeletedTime()},
      {"Size", document.Size()},
      {"FileSize", document.FileSize()},
      {"IsUnread", document.IsUnread()},
      {"IsMarkedAsUnread", document.IsMarkedAsUnread()},
      {"IsUndelivered", document.IsUndelivered()},
      {"GetAttachmentCount", document.GetAttachmentCount()},
      {"GetRecipientCount", document.GetRecipientCount()},
  };
}

Json AttachmentJson(const CMSAttachment& attachment) {
  return {
      {"ID", attachment.ID()},
      {"DocID", attachment.DocID()},
      {"Name", attachment.Name().str()},
      {"AttachmentName", attachment.AttachmentName().str()},
      {"InternalFileName", attachment.InternalFileName().str()},
      {"Attributes", attachment.Attributes()},
      {"DateTime", attachment.DateTime().Seconds()},
      {"Size", attachment.Size()},
      {"FileSize", attachment.FileSize()},
      {"Flag", attachment.Flag()},
  };
}

Json RecipientJson(const CMSRecipient& recipient) {
  return {
      {"ID", recipient.ID()},
      {"DocID", recipient.DocID()},
      {"Category", recipient.Category()},
      {"UserName", recipient.UserName().str()},
      {"Annotation", recipient.Annotation().str()},
      {"TransEnvFileName", recipient.TransEnvFileName().str()},
      {"PackTime", recipient.PackTime()},
      {"ObsoleteNetAddr", recipient.ObsoleteNetAddr().str()},
      {"IDWS", recipient.IDWS().str()},
      {"IDWG", recipient.IDWG().str()},
      {"IDU", recipient.IDU().str()},
      {"WSName", recipient.WSName().str()},
      {"WGName", recipient.WGName().str()},
      {"Receiver", recipient.Receiver().str()},
      {"ReceiveTime", recipient.ReceiveTime()},
      {"Reader", recipient.Reader().str()},
      {"ReadTime", recipient.ReadTime()},
      {"Flag", recipient.Flag()},
      {"IsUndelivered", recipient.IsUndelivered()},
  };
}

void WriteDocument(JsonStream& out, const CMSDocument& document) {
  out.BeginObject(DocumentJson(document));
  out.BeginArray("Attachments");
  CMSAttachment attachment;
  for (auto place = document.GetFirstAttachmentPosition();
       document.GetNextAttachment(attachment, place);) {
    out.Value(AttachmentJson(attachment));
  }
  out.EndArray();
  out.BeginArray("Recipients");
  CMSRecipient recipient;
  for (auto place = document.GetFirstRecipientPosition();
       document.GetNextRecipient(recipient, place);) {
    out.Value(RecipientJson(recipient));
  }
  out.EndArray();
  out.EndObject();
}

}  // namespace tool
