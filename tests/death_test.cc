// Broken invariants end the process through the assertion, in every build
// type: these tests run in the optimised build with NDEBUG set as well.
#include <cli/cmd_line_interface.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdlib>

// Interposes calloc(), which the session uses for the words of a dispatched
// line, so that a test can make it fail. Every other call goes on to the next
// calloc(): the C library's, or a sanitizer's that tracks the memory.
static bool calloc_fails = false;
// Left uninstrumented: threads call it before a sanitizer has set them up.
extern "C" __attribute__((no_sanitize("thread"))) void* calloc(size_t count,
                                                               size_t size) {
  using Calloc = void* (*)(size_t, size_t);
  static Calloc next = nullptr;
  static bool looking_up = false;
  if (next == nullptr) {
    // Should the lookup itself ask for memory, it gets none and copes.
    if (looking_up) return nullptr;
    looking_up = true;
    next = reinterpret_cast<Calloc>(dlsym(RTLD_NEXT, "calloc"));
    looking_up = false;
  }
  return calloc_fails ? nullptr : next(count, size);
}

namespace zel {
namespace cli {

// Reaches into the session to break its state on purpose.
class CmdLineInterfacePeer {
 public:
  static void InsertPastTheLine(CmdLineInterface& cli) {
    std::string text = "x";
    cli.cursor_ = 1;
    cli.InsertString(text);
  }
  static void ParseLine(CmdLineInterface& cli, const std::string& line) {
    cli.line_ = line;
    cli.ParseLine();
  }
  // Opens a list with no candidates, which Tab never does, and chooses.
  static void SelectFromEmptyList(CmdLineInterface& cli) {
    cli.candidate_screen_ = new CmdLineInterface::CandidateScreen({}, "", &cli);
    cli.candidate_screen_->Select();
  }
};

namespace {

TEST(LineEditingDeathTest, CursorPastTheLineEndsTheProcess) {
  EXPECT_DEATH(
      {
        openlog("invariant_death_test", LOG_PERROR, LOG_USER);
        CmdLineInterface cli;
        CmdLineInterfacePeer::InsertPastTheLine(cli);
      },
      "InsertString 467 : this should not happend\n"
      ".*cmd_line_interface.cc:468: bool "
      "zel::cli::CmdLineInterface::InsertString\\(std::string&\\): "
      "Assertion `0' failed");
}

TEST(CompletionDeathTest, ChoosingOutsideTheListEndsTheProcess) {
  EXPECT_DEATH(
      {
        openlog("invariant_death_test", LOG_PERROR, LOG_USER);
        CmdLineInterface cli;
        CmdLineInterfacePeer::SelectFromEmptyList(cli);
      },
      "bool zel::cli::CmdLineInterface::CandidateScreen::Select\\(\\) 726: "
      "don't do this to me :\\(\n"
      ".*cmd_line_interface.cc:727: bool "
      "zel::cli::CmdLineInterface::CandidateScreen::Select\\(\\): "
      "Assertion `0' failed");
}

TEST(DispatchDeathTest, NoMemoryForAWordEndsTheProcess) {
  EXPECT_DEATH(
      {
        CmdLineInterface cli;
        calloc_fails = true;
        CmdLineInterfacePeer::ParseLine(cli, "help");
      },
      "cmd_line_interface.cc:[0-9]+: bool "
      "zel::cli::CmdLineInterface::ParseLine\\(\\): "
      "Assertion `argv\\[argc\\] != __null' failed");
}

}  // namespace
}  // namespace cli
}  // namespace zel
