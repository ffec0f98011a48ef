// A process of its own for tests that fight over a store or kill each other. It tells on standard
// output what it has done, a character or a line each.
//
//   worker write STORE SEED LEVEL STEPS SCRATCH   'o', opening, 'O', a 'a' for each step, 'c',
//                                                 closing, 'C'
//   worker repair STORE                           'o', repairing, 'C'
//   worker hold STORE LETTER                      "ready"; waits for a line; then a line with the
//                                                 status of the opening (0: open) and its
//                                                 milliseconds; holds the store until standard
//                                                 input ends
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "OpenStore.h"
#include "Workload.h"

#include "ms/Source/MSFixer.h"

namespace {

// Not buffered: what was told must be known also of a process that was killed.
void Tell(char what) {
  if (::write(STDOUT_FILENO, &what, 1) != 1) std::exit(3);
}

int Write(char** arguments) {
  Tell('o');
  {
    CMSMessageStore store = OpenStore(arguments[0], false, nullptr,
                                      static_cast<CMSDurabilityLevel>(std::atoi(arguments[2])));
    const std::string scratch = arguments[4];
    Workload work(store, static_cast<unsigned>(std::atoi(arguments[1])), scratch + "/source",
                  scratch + "/backup");
    Tell('O');
    for (int steps = std::atoi(arguments[3]); steps-- > 0; Tell('a')) work.Step();
    work.Finish();
    Tell('c');
  }
  Tell('C');
  return 0;
}

int Repair(const char* store) {
  Tell('o');
  if (!MSF::CFixer().RepairMS(store)) return 1;
  Tell('C');
  return 0;
}

int Hold(char** arguments) {
  std::cout << "ready" << std::endl;
  std::string line;
  std::getline(std::cin, line);
  const auto begin = std::chrono::steady_clock::now();
  int code = 0;
  CMSMessageStore store;
  try {
    store = OpenStore(arguments[0], false, nullptr, CMSDurabilityLevel::Operation);
  } catch (const XKitStatus& error) {
    code = error.Code();
  }
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
  if (code == 0)
    store.Root().CreateDocument(arguments[1], "", "", "", "", "", "", "", "", docflag::Complete, 0);
  std::cout << code << " " << took.count() << std::endl;
  std::getline(std::cin, line);
  return code;
}

}  // namespace

int main(int count, char** arguments) {
  const std::string mode = count > 1 ? arguments[1] : "";
  if (mode == "write" && count == 7) return Write(arguments + 2);
  if (mode == "repair" && count == 3) return Repair(arguments[2]);
  if (mode == "hold" && count == 4) return Hold(arguments + 2);
  std::cerr << "see the comment at the head of Worker.cpp" << std::endl;
  return 2;
}
