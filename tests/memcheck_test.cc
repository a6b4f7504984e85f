// The device shell under valgrind's memcheck, through a whole session:
// editing, history, completion, every outcome of a command, and exit. Any
// memory error, or memory definitely or indirectly lost, fails it.
#include <gtest/gtest.h>

#include <string>

#include "key_script.h"
#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

TEST(Memcheck, DeviceShellSession) {
  PtySession session(
      {ZELCLI_VALGRIND, "--error-exitcode=99", "--leak-check=full",
       "--show-leak-kinds=definite,indirect",
       "--errors-for-leak-kinds=definite,indirect", ZELCLI_DEVICE_SHELL});
  const std::string head = "board> ";
  // Editing: a stray letter taken out in the middle of the line.
  TypeText(session, "lxed on");
  session.Type(kHome);
  session.Type(kRight);
  session.Type(kRight);
  session.Type(kDel);
  session.Type(kEnd);
  EXPECT_EQ(session.Type(kEnter), "\nstatus LED on\n" + head);
  // Each way a command ends.
  EXPECT_EQ(RunLine(session, "get hostname"), "\nboard-01\n" + head);
  EXPECT_EQ(RunLine(session, "get serial"),
            "\nserial is not set\nFailed to do [get] ret code [1]\n" + head);
  EXPECT_EQ(RunLine(session, "set baudrate"), "\nUsage : KEY VALUE\n" + head);
  EXPECT_EQ(RunLine(session, "reboot"),
            "\nFailed to do [reboot] ret code [3]\n"
            "cmd [reboot] is not supported\n" +
                head);
  EXPECT_EQ(RunLine(session, "selftest"),
            "\nsensor 1 ok\nsensor 2 not responding\n"
            "Failed to do [selftest] ret code [5]\n" +
                head);
  EXPECT_EQ(RunLine(session, "flash"),
            "\ncmd [flash] is not supported\n" + head);
  EXPECT_EQ(RunLine(session, "led?"), "\nUsage : on|off\n" + head);
  EXPECT_NE(RunLine(session, "help").find("selftest"), std::string::npos);
  // History (which keeps neither unknown commands nor queries): the line
  // before last again, then Page Up and back down.
  session.Type(kUp);
  session.Type(kUp);
  EXPECT_EQ(session.Type(kEnter),
            "\nsensor 1 ok\nsensor 2 not responding\n"
            "Failed to do [selftest] ret code [5]\n" +
                head);
  session.Type(kPageUp);
  session.Type(kPageDown);
  // Completion: a unique name, a list chosen from, a list closed.
  TypeText(session, "ech");
  session.Type(kTab);
  EXPECT_EQ(RunLine(session, " hi"), "\nhi\n" + head);
  session.Type("s");
  session.Type(kTab);
  session.Type(kDown);
  session.Type(kDown);
  session.Type(kEnter);
  EXPECT_NE(session.Type(kEnter).find("LED on"), std::string::npos);
  TypeText(session, "st");
  session.Type(kTab);
  session.Type(kTab);
  session.Type(kDel);
  session.Type(kDel);

  TypeText(session, "exit");
  session.Send(kEnter);
  session.WaitForExit();
  EXPECT_TRUE(session.ExitedCleanly());
  std::string report = session.TakeStderr();
  EXPECT_NE(report.find("ERROR SUMMARY: 0 errors"), std::string::npos)
      << report;
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
