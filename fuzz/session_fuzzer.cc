// Types arbitrary bytes into a whole session through Run(): each byte is
// decoded as a key (escape sequences included) and handled, and each finished
// line is run. The session's own assertions and the sanitizers catch a state
// that does not hold together: a cursor past the line, a choice outside the
// list, memory misused.
//
// Standard input is a memory file holding the input and then keys that end
// whatever the input left open and leave Run(): six Enters (an unfinished
// escape sequence takes at most four bytes, an open list closes on the first
// Enter and its choice runs on the second) and "exit". Standard output goes
// to /dev/null.
#include <cli/cmd_line_interface.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

using zel::cli::CmdLineInterface;
using zel::cli::Result;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  int input = memfd_create("fuzz-input", 0);
  int sink = open("/dev/null", O_WRONLY);
  if (dup2(input, STDIN_FILENO) < 0 || dup2(sink, STDOUT_FILENO) < 0) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string keys(reinterpret_cast<const char*>(data), size);
  keys += "\r\r\r\r\r\rexit\r";
  if (ftruncate(STDIN_FILENO, 0) != 0 ||
      pwrite(STDIN_FILENO, keys.data(), keys.size(), 0) !=
          static_cast<ssize_t>(keys.size()) ||
      lseek(STDIN_FILENO, 0, SEEK_SET) != 0) {
    abort();
  }
  CmdLineInterface cli;
  std::vector<CmdLineInterface::Command> commands = {
      {"set", "", "KEY VALUE", [](int, char**) { return Result::Success; }},
      {"show", "", "{}", [](int, char**) { return Result::Failure; }},
      {"status", "", "{}", [](int, char**) { return Result::NotSupported; }},
      {"stats", "", "", [](int, char**) { return Result::InvalidArgs; }},
      {"nofunc", "", "{}", nullptr}};
  cli.AddCmdList(commands);
  cli.Run();
  return 0;
}
