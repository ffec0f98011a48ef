// What concerns this process as a whole.
#pragma once

#include <cstddef>

namespace platform {

// Stops in an attached debugger; without one, ends the process as a failed assertion does.
void BreakIntoDebugger();
// Fills the buffer from the system's random source. Ends the process when that source fails.
void RandomBytes(void* data, std::size_t size);

// Puts another source in place for tests whose runs have to be alike (null: the system's again) and
// answers the previous one, null for the system's.
using RandomSource = void (*)(void* data, std::size_t size);
RandomSource SetRandom(RandomSource source);

}  // namespace platform
