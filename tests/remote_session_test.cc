// The device shell served over TCP by socat, which gives every connection a
// pseudo-terminal and a shell process of its own, as the guide tells a lab to
// run it, here bound to the loopback address:
//   socat TCP-LISTEN:PORT,reuseaddr,fork EXEC:HOST,pty,setsid,ctty,stderr
// Two clients on the loopback address type command lines and check every
// byte that comes back. A line is sent only when the client's shell has read
// everything sent before and waits in poll(), so the terminal is raw when the
// line arrives and nothing depends on timing.
#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string>

#include "pty_session.h"

namespace zel {
namespace cli {
namespace testing {
namespace {

constexpr char kPrompt[] = "board> ";
// The terminal turns each line feed the shell writes into CR LF.
constexpr char kGreeting[] =
    "zelcli device shell. Type help for the commands, exit to leave.\r\n"
    "board> ";

pid_t ParentOf(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string fields;
  std::getline(stat, fields);
  // The command name in parentheses may hold blanks; the state and the
  // parent follow the last parenthesis.
  size_t close = fields.rfind(')');
  if (close == std::string::npos) return -1;
  char state;
  pid_t parent = -1;
  std::sscanf(fields.c_str() + close + 1, " %c %d", &state, &parent);
  return parent;
}

// The shells a socat listener has started: for each connection it forks a
// child, which starts the shell.
std::set<pid_t> ShellsOf(pid_t listener) {
  std::set<pid_t> shells;
  DIR* proc = opendir("/proc");
  while (dirent* entry = readdir(proc)) {
    pid_t pid = std::atoi(entry->d_name);
    if (pid > 0 && ParentOf(ParentOf(pid)) == listener) shells.insert(pid);
  }
  closedir(proc);
  return shells;
}

class Listener {
 public:
  // Starts socat on a loopback port that was free a moment ago, and waits
  // until it accepts connections.
  Listener() {
    int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof(address);
    bind(probe, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    close(probe);

    std::string listen = "TCP-LISTEN:" + std::to_string(port_) +
                         ",bind=127.0.0.1,reuseaddr,fork";
    std::string exec =
        std::string("EXEC:") + ZELCLI_DEVICE_SHELL + ",pty,setsid,ctty,stderr";
    pid_ = Spawn({ZELCLI_SOCAT, listen, exec}, [] {});
    bool listening = WaitFor([&] {
      std::ifstream tcp("/proc/net/tcp");
      char local[32];
      std::snprintf(local, sizeof(local), "0100007F:%04X", port_);
      for (std::string line; std::getline(tcp, line);) {
        // Field 4 is the state, 0A for LISTEN.
        if (line.find(local) != std::string::npos &&
            line.find(" 0A ") != std::string::npos) {
          return true;
        }
      }
      return false;
    });
    EXPECT_TRUE(listening) << "socat never listened on port " << port_;
  }
  ~Listener() {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }

  static sockaddr_in Loopback(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
  }

  pid_t pid() const { return pid_; }
  int port() const { return port_; }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
};

class Client {
 public:
  // Connects and waits for the greeting; `shell` is then the one new device
  // shell under the listener.
  explicit Client(const Listener& listener) {
    std::set<pid_t> before = ShellsOf(listener.pid());
    socket_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = Listener::Loopback(listener.port());
    EXPECT_EQ(connect(socket_, reinterpret_cast<sockaddr*>(&address),
                      sizeof(address)),
              0);
    EXPECT_EQ(Visible(ReadUntil(kPrompt)), Visible(kGreeting));
    for (pid_t pid : ShellsOf(listener.pid())) {
      if (before.count(pid) == 0) shell_ = pid;
    }
    EXPECT_GT(shell_, 0) << "no new device shell under socat";
    read_at_greeting_ = ProcField(shell_, "io", "rchar");
  }
  ~Client() { close(socket_); }

  // Sends `line` once the shell waits for it and returns what comes back up
  // to and including the next prompt.
  std::string Type(const std::string& line) {
    Send(line);
    return ReadUntil(kPrompt);
  }

  // Sends `line` once the shell waits for it and returns all that comes back
  // until the connection closes.
  std::string TypeLast(const std::string& line) {
    Send(line);
    return ReadUntil("");
  }

 private:
  void Send(const std::string& line) {
    bool waiting = WaitFor([&] {
      return ProcField(shell_, "io", "rchar") == read_at_greeting_ + sent_ &&
             InPoll(shell_);
    });
    ASSERT_TRUE(waiting) << "the shell never came back to wait for a key";
    ASSERT_EQ(write(socket_, line.data(), line.size()),
              static_cast<ssize_t>(line.size()));
    sent_ += static_cast<long>(line.size());
  }

  // Reads until what came in ends with `end`, or with an empty `end` until
  // the peer closes.
  std::string ReadUntil(const std::string& end) {
    std::string got;
    bool done = WaitFor([&] {
      pollfd ready = {socket_, POLLIN, 0};
      if (poll(&ready, 1, 0) <= 0) return false;
      char buffer[4096];
      ssize_t n = read(socket_, buffer, sizeof(buffer));
      if (n <= 0) return end.empty();
      got.append(buffer, n);
      return !end.empty() && got.size() >= end.size() &&
             got.compare(got.size() - end.size(), end.size(), end) == 0;
    });
    EXPECT_TRUE(done) << "waited for \"" << end << "\", got " << Visible(got);
    return got;
  }

  int socket_ = -1;
  pid_t shell_ = -1;
  long read_at_greeting_ = 0;
  long sent_ = 0;
};

TEST(RemoteSession, TwoClientsOverSocat) {
  Listener listener;
  Client first(listener);
  Client second(listener);

  // Each connection has a shell of its own, with its own configuration.
  EXPECT_EQ(Visible(first.Type("set mode lab\r")),
            Visible("set mode lab\r\nboard> "));
  EXPECT_EQ(Visible(second.Type("get mode\r")),
            Visible("get mode\r\nmode is not set\r\n"
                    "Failed to do [get] ret code [1]\r\nboard> "));
  EXPECT_EQ(Visible(first.Type("get mode\r")),
            Visible("get mode\r\nlab\r\nboard> "));
  EXPECT_EQ(Visible(second.Type("reboot now\r")),
            Visible("reboot now\r\nFailed to do [reboot] ret code [3]\r\n"
                    "cmd [reboot] is not supported\r\nboard> "));
  EXPECT_EQ(Visible(second.Type("led?\r")),
            Visible("led?\r\nUsage : on|off\r\nboard> "));

  // Leaving ends that shell and closes its connection; the other goes on.
  EXPECT_EQ(Visible(first.TypeLast("exit\r")), Visible("exit\r\n"));
  EXPECT_EQ(Visible(second.Type("echo still here\r")),
            Visible("echo still here\r\nstill here\r\nboard> "));
  EXPECT_EQ(Visible(second.TypeLast("quit\r")), Visible("quit\r\n"));
}

}  // namespace
}  // namespace testing
}  // namespace cli
}  // namespace zel
