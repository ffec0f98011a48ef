// The predefined folders of a store.
#pragma once

namespace MSF {

// A predefined folder is known by its type code (CMSFolder::Type), whatever it is called now. It
// lies directly under the root, the folder with ID 1. Code 0 and all others are ordinary folders.
struct MSFolderRole {
  long type;
  const char* name;   // given when the folder is made
  const char* props;  // likewise
};

inline constexpr long kRoleWmRoot = 1;
inline constexpr long kRoleInbox = 2;
inline constexpr long kRoleOutbox = 3;
inline constexpr long kRoleTrash = 4;
inline constexpr long kRoleAudit = 5;
inline constexpr long kRoleTemplates = 6;
inline constexpr long kRoleDeleted = 7;

inline constexpr bool IsPredefinedType(long type) {
  return type >= kRoleWmRoot && type <= kRoleDeleted;
}

inline constexpr MSFolderRole kFolderRoles[] = {
    {kRoleWmRoot, "WMROOT", ""},   {kRoleInbox, "INBOX", ""}, {kRoleOutbox, "OUTBOX", ""},
    {kRoleTrash, "TRASH", ""},     {kRoleAudit, "AUDIT", ""}, {kRoleTemplates, "TEMPLATES", ""},
    {kRoleDeleted, "DELETED", ""},
};

}  // namespace MSF
