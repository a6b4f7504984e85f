// The integration guide's recipe for ending a session from another thread:
// on SIGTERM the host puts the terminal's mode back and exits, while the
// session still waits for a key with echo off.
#include <signal.h>
#include <termios.h>

#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

TEST(Guide, SigtermRecipeLeavesTheTerminalAsItWas) {
  PtySession session({ZELCLI_GUIDE_SIGTERM_HOST});
  ASSERT_EQ(session.LocalModes() & (ICANON | ECHO), 0u);
  kill(session.pid(), SIGTERM);
  session.WaitForExit();
  EXPECT_TRUE(session.ExitedCleanly());
  EXPECT_EQ(session.LocalModes() & (ICANON | ECHO),
            static_cast<unsigned>(ICANON | ECHO));
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
