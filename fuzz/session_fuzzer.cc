// Types arbitrary bytes into a whole session: each byte is decoded as a key
// (escape sequences included) and handled, and each finished line is run. The
// session's own assertions and the sanitizers catch a state that does not
// hold together: a cursor past the line, a choice outside the list, memory
// misused.
//
// Standard input is a memory file holding the input, so every byte is there
// at once and its end reads as end of file; standard output goes to
// /dev/null.
#include <cli/cmd_line_interface.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace zel {
namespace cli {

class CmdLineInterfacePeer {
 public:
  static void Type(size_t size) {
    CmdLineInterface cli;
    std::vector<CmdLineInterface::Command> commands = {
        {"set", "", "KEY VALUE", [](int, char**) { return Result::Success; }},
        {"show", "", "{}", [](int, char**) { return Result::Failure; }},
        {"status", "", "{}", [](int, char**) { return Result::NotSupported; }},
        {"stats", "", "", [](int, char**) { return Result::InvalidArgs; }},
        {"nofunc", "", "{}", nullptr}};
    cli.AddCmdList(commands);
    // exit and quit wake the next read; a third wake-up would block for ever.
    for (CmdLineInterface::Command& command : cli.commands_) {
      if (command.name == "exit" || command.name == "quit") {
        command.func = nullptr;
      }
    }
    auto consumed = [] { return size_t(lseek(STDIN_FILENO, 0, SEEK_CUR)); };
    while (consumed() < size) {
      cli.cursor_ = 0;
      cli.line_.clear();
      Console::KeyInfo key = {0, Console::KeyType::None};
      bool finished = false;
      while (!finished && consumed() < size) {
        cli.console_.ReadKey(&key);
        finished = cli.HandleKeyEvent(&key);
      }
      if (finished) cli.ParseLine();
    }
  }
};

}  // namespace cli
}  // namespace zel

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  int input = memfd_create("fuzz-input", 0);
  int sink = open("/dev/null", O_WRONLY);
  if (dup2(input, STDIN_FILENO) < 0 || dup2(sink, STDOUT_FILENO) < 0) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (ftruncate(STDIN_FILENO, 0) != 0 ||
      pwrite(STDIN_FILENO, data, size, 0) != static_cast<ssize_t>(size) ||
      lseek(STDIN_FILENO, 0, SEEK_SET) != 0) {
    abort();
  }
  zel::cli::CmdLineInterfacePeer::Type(size);
  return 0;
}
