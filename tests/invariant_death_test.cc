// Broken invariants end the process through the assertion, in every build
// type: these tests run in the optimised build with NDEBUG set as well.
#include <cli/cmd_line_interface.h>
#include <gtest/gtest.h>
#include <syslog.h>

namespace zel {
namespace cli {

// Reaches into the session to break its state on purpose.
class CmdLineInterfacePeer {
 public:
  static void SetCursor(CmdLineInterface& cli, uint32_t cursor) {
    cli.cursor_ = cursor;
  }
  static bool InsertString(CmdLineInterface& cli, const std::string& text) {
    return cli.InsertString(text);
  }
};

namespace {

TEST(LineEditingDeathTest, CursorPastTheLineEndsTheProcess) {
  EXPECT_DEATH(
      {
        openlog("invariant_death_test", LOG_PERROR, LOG_USER);
        CmdLineInterface cli;
        CmdLineInterfacePeer::SetCursor(cli, 1);
        CmdLineInterfacePeer::InsertString(cli, "x");
      },
      "InsertString 467 : this should not happend\n"
      ".*cmd_line_interface.cc:468: bool "
      "zel::cli::CmdLineInterface::InsertString\\(std::string&\\): "
      "Assertion `0' failed");
}

}  // namespace
}  // namespace cli
}  // namespace zel
