// How the engine opens the files of a store.
#pragma once

#include <memory>
#include <string>

#include "EngineContext.h"
#include "platform/File.h"

// Sharing with readers only; made when it is not there and the context is writable. CMSDBException
// 17 when it cannot be opened.
std::unique_ptr<platform::File> OpenStoreFile(const CMSEngineContext& context,
                                              const std::string& path);
