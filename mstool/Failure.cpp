#include "Failure.h"

#include <ms/Errors.h>

#include <filesystem>

namespace tool {
namespace {

constexpr const char* kRepairHint = "; the store is damaged and needs a repair";

Failure ExplainEngine(const CMSDBException& error) {
  const std::string text = error.what();
  switch (error.Code()) {
    case CMSDBException::kWriteFailed:
      return {kExitCannotAccess, text + "; see that the disk has room and is healthy"};
    case CMSDBException::kCannotOpen:
      if (error.IsInUse()) return {kExitInUse, kInUse};
      return {kExitCannotAccess, text};
    default:
      return {kExitDamaged, text + kRepairHint};
  }
}

Failure ExplainStatus(const XKitStatus& error) {
  const std::string text = error.what();
  switch (error.Code()) {
    case kit::kStatusInvalidArgument:
      return {kExitUsage, text};
    case kit::kStatusAttachmentMissing:
      return {kExitDamaged, text};
    case kit::kStatusFileMissing:
    case kit::kStatusInvalidHandle:
      return {kExitDamaged, text + kRepairHint};
    default:
      return {kExitCannotAccess, text};
  }
}

Failure ExplainFile(const XKitFile& error) {
  const std::string text = error.what();
  switch (error.Why()) {
    case XKitFile::Cause::NoSpace:
      return {kExitCannotAccess, text + "; make room on the disk and try again"};
    case XKitFile::Cause::AccessDenied:
      return {kExitCannotAccess, text + "; see to the permissions"};
    case XKitFile::Cause::InUse:
      return {kExitInUse, text + "; try again when the other program is done"};
    default:
      return {kExitCannotAccess, text};
  }
}

}  // namespace

Failure Explain(const std::exception& error) {
  if (const auto* known = dynamic_cast<const Failure*>(&error)) return *known;
  if (const auto* engine = dynamic_cast<const CMSDBException*>(&error)) {
    return ExplainEngine(*engine);
  }
  if (const auto* status = dynamic_cast<const XKitStatus*>(&error)) return ExplainStatus(*status);
  if (const auto* file = dynamic_cast<const XKitFile*>(&error)) return ExplainFile(*file);
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
    return {kExitCannotAccess, "out of memory"};
  }
  return {kExitCannotAccess, error.what()};
}

}  // namespace tool
