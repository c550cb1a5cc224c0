#pragma once

// The built service in a temporary directory.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

#include "Fd.hpp"
#include "Peer.hpp"

namespace quorbin::tests {

namespace fs = std::filesystem;

inline bool Eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + Patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

inline std::string Contents(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The text without the piece, wherever it is.
inline std::string Without(std::string text, const std::string& piece) {
  for (std::size_t at = 0; (at = text.find(piece, at)) != text.npos;) text.erase(at, piece.size());
  return text;
}

// What a shell command has printed on both streams, and its exit status.
struct Outcome {
  int Status = -1;
  std::string Output;
};
inline Outcome RunShell(const std::string& command) {
  Outcome outcome;
  FILE* const pipe = ::popen(("exec 2>&1; " + command).c_str(), "r");
  for (int c = 0; (c = std::fgetc(pipe)) != EOF;) outcome.Output += static_cast<char>(c);
  outcome.Status = WEXITSTATUS(::pclose(pipe));
  return outcome;
}

// Starts a process of another user, whose exit status is the result of work.
inline pid_t StartAsNobody(const std::function<int()>& work) {
  constexpr uid_t nobody = 65534;
  const pid_t pid = ::fork();
  if (pid == 0) ::_exit(::setresuid(nobody, nobody, nobody) == 0 ? work() : 99);
  return pid;
}

// What a service listens on.
enum class Way { Tcp, Local };

// What a child runs before the program.
using Preparation = std::function<void()>;
inline const Preparation Nothing = [] {};

class Service {
 public:
  // The way of the next services.
  static inline Way NextWay = Way::Tcp;

  explicit Service(const std::string& settings = {}, Way way = NextWay) : way_(way) {
    std::string pattern = (fs::temp_directory_path() / "quorbin-test-XXXXXX").string();
    Home = ::mkdtemp(pattern.data());
    for (const char* name : {"tmp", "run", "config/quorbin"}) fs::create_directories(Home / name);
    fs::copy_file(QUORBIN, Home / "Quorbin");
    // Its copy of the file gets its last name when it is whole.
    WriteScript("view",
                "cat \"$1\" >$0.part; shift; echo \"$@\" >$0.arguments; mv $0.part $0.ed\n");
    Port = FreePort();
    Settings(settings);
  }
  ~Service() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
    std::error_code ignored;
    fs::remove_all(Home, ignored);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // More comes first, where it counts before what follows, and begins in section Extensions.
  void Settings(const std::string& more) {
    WriteFile("quorbin.ini", "[Extensions]\n" + more + "[Extensions]\ntxt=" + Path("view") +
                                 " \"%1\"\n[Global]\nControl=2\nPort=" + std::to_string(Port) +
                                 (way_ == Way::Local ? "\nListen=*local" : "") +
                                 "\n[Hosts]\nDefault=*deny\n127.0.0.1=*allow\n::1=*allow\n"
                                 "*local=*allow\n");
  }

  // Starts the program.
  void Launch(const Preparation& prepare = Nothing) {
    pid_ = ::fork();
    if (pid_ != 0) return;
    ::unsetenv("DISPLAY");
    ::unsetenv("WAYLAND_DISPLAY");
    ::setenv("TMP", (Home / "tmp").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", (Home / "run").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (Home / "config").c_str(), 1);
    ::dup2(::open((Home / "out").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDOUT_FILENO);
    ::dup2(::open((Home / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
    prepare();
    if (std::getenv("VALGRIND_OPTS")) {  // they name a file for what is found
      ::execlp("valgrind", "valgrind", (Home / "Quorbin").c_str(), nullptr);
    }
    ::execl((Home / "Quorbin").c_str(), "Quorbin", nullptr);
    ::_exit(127);
  }
  // The same, and waits until the program has started.
  bool Start(const Preparation& prepare = Nothing) {
    fs::remove(Home / "out");
    Launch(prepare);
    return Shows("aktion: listening\n");
  }
  // Exit status of the program, or minus the number of the signal that ended it.
  int Wait() {
    int status = 0;
    if (!Eventually([&] { return ::waitpid(pid_, &status, WNOHANG) == pid_; })) return -999;
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }
  void Signal(int signal) const { ::kill(pid_, signal); }
  int Stop(int signal = SIGTERM) {
    Signal(signal);
    return Wait();
  }
  // The program must end at once, with this message alone.
  void ExpectNoStart(const std::string& message, const Preparation& prepare = Nothing) {
    Launch(prepare);
    EXPECT_EQ(Wait(), 1);
    EXPECT_EQ(Contents(Home / "err"), "Error while loadingQuorbin: " + message + "\n");
    EXPECT_EQ(Contents(Home / "out"), "");
  }

  // A connection, as soon as the program listens.
  Peer Connect(bool v6 = false) const {
    Peer peer;
    Eventually([&] { return static_cast<bool>(peer = TryToConnect(v6)); });
    return peer;
  }
  Peer TryToConnect(bool v6 = false) const {
    return way_ == Way::Local ? Peer::Local(Path("run/Quorbin/in")) : Peer::Tcp(Port, v6);
  }
  // The address of an IPv4 peer, or of one on the Unix socket.
  std::string PeerAddress() const { return way_ == Way::Local ? "*local" : "127.0.0.1"; }
  // True once standard output has the text.
  bool Shows(const std::string& text) const {
    return Eventually([&] { return Contents(Home / "out").find(text) != std::string::npos; });
  }
  // What the viewer got of the next file; "(none)" if none comes.
  std::string Viewed() const {
    if (!Eventually([&] { return fs::exists(Home / "view.ed"); })) return "(none)";
    const std::string bytes = Contents(Home / "view.ed");
    fs::remove(Home / "view.ed");
    return bytes;
  }
  fs::path ProcessFolder() const { return "/proc/" + std::to_string(pid_); }
  std::size_t Descriptors() const { return CountEntries(ProcessFolder() / "fd"); }
  std::size_t Received() const { return CountEntries(Home / "tmp"); }
  std::string Path(const std::string& name) const { return (Home / name).string(); }
  void WriteFile(const fs::path& name, const std::string& bytes) const {
    std::ofstream(Home / name, std::ios::binary) << bytes;
  }
  // A program of shell commands.
  void WriteScript(const fs::path& name, const std::string& commands) const {
    WriteFile(name, "#!/bin/sh\n" + commands);
    fs::permissions(Home / name, fs::perms::owner_all);
  }

  fs::path Home;
  int Port = 0;

 private:
  static std::size_t CountEntries(const fs::path& directory) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
  }
  static int FreePort() {
    const Fd probe(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t length = sizeof address;
    ::bind(probe.Get(), reinterpret_cast<sockaddr*>(&address), length);
    ::getsockname(probe.Get(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
  }

  const Way way_;
  pid_t pid_ = 0;
};

// A service that has started.
struct Running : Service {
  explicit Running(const std::string& settings = {}, const Preparation& prepare = Nothing)
      : Service(settings) {
    EXPECT_TRUE(Start(prepare));
  }
};

}  // namespace quorbin::tests
