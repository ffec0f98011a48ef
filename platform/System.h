// What the two implementations give to the part of platform that they share. Not for other layers.
#pragma once

#include <cstddef>

#include "platform/File.h"
#include "platform/Time.h"

namespace platform {

// The operating system's own file system; it has no state and lives as long as the process.
FileSystem& SystemFiles();

// Date and time of day by the system's clock.
LocalTime SystemLocalNow();

// The system's random source. Ends the process when that fails.
void SystemRandomBytes(void* data, std::size_t size);

}  // namespace platform
