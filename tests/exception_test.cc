// Exceptions from a host's code pass through the library to the host's catch.
// The library is linked without the C runtime's start files and built for
// size; the ARM build runs these under qemu-arm, where the unwinder must find
// the library's own exception tables.
#include <cli/cmd_line_interface.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "redirect.h"

namespace zel {
namespace cli {
namespace {

using Command = CmdLineInterface::Command;
using testing::FdCapture;
using testing::StdinPty;

TEST(Exceptions, ThrownByACommandLeaveRun) {
  StdinPty terminal;
  FdCapture out(STDOUT_FILENO);
  CmdLineInterface cli;
  std::vector<Command> commands = {
      {"boom", "throws", "{}", [](int, char**) -> Result {
         throw std::runtime_error("from the command");
       }}};
  cli.AddCmdList(commands);
  // Should the exception be lost, "exit" ends Run() instead of a hang.
  terminal.Send("boom x\rexit\r");
  try {
    cli.Run();
    ADD_FAILURE() << "Run() returned";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "from the command");
  }
  EXPECT_EQ(out.Take(), "cli>boom x\n");
}

bool copies_fail = false;

// A command function whose copy runs out of memory when told to.
struct FailsToCopy {
  FailsToCopy() = default;
  FailsToCopy(const FailsToCopy&) {
    if (copies_fail) throw std::bad_alloc();
  }
  Result operator()(int, char**) const { return Result::Success; }
};

TEST(Exceptions, OutOfMemoryInAddCmdListKeepsWhatWasAdded) {
  CmdLineInterface cli;
  std::vector<Command> commands = {{"first", "added", "{}", nullptr},
                                   {"second", "fails", "{}", FailsToCopy()}};
  copies_fail = true;
  EXPECT_THROW(cli.AddCmdList(commands), std::bad_alloc);
  copies_fail = false;

  StdinPty terminal;
  FdCapture out(STDOUT_FILENO);
  terminal.Send("help\rexit\r");
  cli.Run();
  std::string listing = out.Take();
  EXPECT_NE(listing.find("\nfirst\tadded"), std::string::npos) << listing;
  EXPECT_EQ(listing.find("second"), std::string::npos) << listing;
}

}  // namespace
}  // namespace cli
}  // namespace zel
