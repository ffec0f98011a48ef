// Ctrl-C and its like: noticed, and obeyed where the store is consistent.
#pragma once

namespace tool {

// From now on the program is not ended by an interrupt or a termination request; they are only
// noted. A reader of the output that goes away makes writing fail instead of ending the program,
// so that the store is always closed.
void WatchInterrupts();
bool Interrupted();
// Raises the failure with exit code 130 when there was one.
void StopIfInterrupted();

}  // namespace tool
