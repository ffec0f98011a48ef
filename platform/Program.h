// What a program at the command line needs of the system.
#pragma once

#include <string>
#include <vector>

namespace platform {

// The program's name and words, in UTF-8; count and words are what main was given.
std::vector<std::string> ProgramWords(int count, char** words);
// Standard output and error take bytes as they are, in UTF-8, also on a terminal.
void PrepareOutput();

enum class Stream { Output = 1, Error = 2 };
// Whether a stream ends in a terminal that understands control sequences.
bool IsTerminal(Stream stream);

}  // namespace platform
