#include "EngineContext.h"

#include "Errors.h"
#include "OpenFile.h"
#include "kit/KitFile.h"
#include "platform/File.h"

namespace {

std::string Named(const char* format, const std::string& file) {
  std::string text = format;
  const auto at = text.find("%s");
  return at == std::string::npos ? text : text.replace(at, 2, file);
}

}  // namespace

void CMSEngineContext::CheckWritable(const std::string& file) const {
  if (readOnly) throw XKitStatus(kit::kStatusReadOnly, "'" + file + "' is open for reading only");
  durability.CheckMayWrite();
}

// A report that cannot be written must not let the store pass for a healthy one.
void ReportCorruption(const CMSEngineContext& context, const char* format,
                      const std::string& file) {
  try {
    context.informer.InformBaseIsCorrupted(CKitFile::DirectoryName(file), Named(format, file));
  } catch (const std::exception& error) {
    context.durability.Refuse(error.what());
    throw;
  }
}

void ReportAndThrow(const CMSEngineContext& context, const char* format, const std::string& file,
                    int code) {
  ReportCorruption(context, format, file);
  throw CMSDBException(code, Named(format, file));
}

std::unique_ptr<platform::File> OpenStoreFile(const CMSEngineContext& context,
                                              const std::string& path) {
  using namespace platform;
  OpenOptions options =
      context.readOnly
          ? OpenOptions{Access::Read, Disposition::OpenExisting, Sharing::ReadOnly}
          : OpenOptions{Access::ReadWrite, Disposition::OpenOrCreate, Sharing::ReadOnly};
  options.writeThrough = context.durability.Level() == CMSDurabilityLevel::Immediate;
  std::unique_ptr<File> file;
  const Status status = Files().Open(path, options, file);
  if (status.Ok()) return file;
  const bool inUse = status.Why() == Cause::InUse;
  throw CMSDBException(
      CMSDBException::kCannotOpen,
      "cannot open '" + path + "': " + (inUse ? "the store is in use" : status.Text()), inUse);
}
