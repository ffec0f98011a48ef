// What concerns this process as a whole.
#pragma once

#include <cstddef>

namespace platform {

// Stops in an attached debugger; without one, ends the process as a failed assertion does.
void BreakIntoDebugger();
// Fills the buffer from the system's random source. Ends the process when that source fails.
void RandomBytes(void* data, std::size_t size);

}  // namespace platform
