#include "Processes.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "CommandLine.hpp"
#include "Fd.hpp"

namespace quorbin {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds TakesFile{500};  // after the start of a viewer

// Waits until the file has gone, the task has ended or the time is over.
void WaitUntilTaken(const std::string& path, pid_t task, Clock::time_point end) {
  const Fd changes(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  const Fd viewer(static_cast<int>(::syscall(SYS_pidfd_open, task, 0)));
  // The loss of a name is a change of the attributes, also while a descriptor keeps the file.
  if (!viewer || ::inotify_add_watch(changes.Get(), path.c_str(),
                                     IN_MOVE_SELF | IN_ATTRIB | IN_DONT_FOLLOW) < 0) {
    return;
  }
  std::array<pollfd, 2> either = {{{changes.Get(), POLLIN, 0}, {viewer.Get(), POLLIN, 0}}};
  while (::access(path.c_str(), F_OK) == 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    if (left <= 0) return;
    const int ready = ::poll(either.data(), either.size(), static_cast<int>(left));
    if ((ready < 0 && errno != EINTR) || either[1].revents != 0) return;
    std::array<char, 4096> read{};
    while (::read(changes.Get(), read.data(), read.size()) > 0) {
    }
  }
}

}  // namespace

std::optional<pid_t> Processes::Start(const std::string& commandLine) const {
  std::vector<std::string> arguments = SplitCommandLine(commandLine);
  if (arguments.empty()) return {};
  // An argument can't contain a zero byte: it would end there, and the program would get a
  // different one.
  if (commandLine.find('\0') != commandLine.npos) return {};
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  if (posix_spawn_file_actions_init(&actions) != 0) return {};
  const std::unique_ptr<posix_spawn_file_actions_t, int (*)(posix_spawn_file_actions_t*)>
      actionsOwner(&actions, posix_spawn_file_actions_destroy);
  if (posix_spawnattr_init(&attributes) != 0) return {};
  const std::unique_ptr<posix_spawnattr_t, int (*)(posix_spawnattr_t*)> attributesOwner(
      &attributes, posix_spawnattr_destroy);

  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  const bool prepared =
      posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0) == 0 &&
      posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1) == 0 &&
      posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
      posix_spawnattr_setsigdefault(&attributes, &all) == 0 &&
      posix_spawnattr_setflags(
          &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
  if (!prepared) return {};
  pid_t task = 0;
  rlimit own{};
  ::prlimit(0, RLIMIT_CORE, &coreLimit_, &own);  // which a child inherits
  // A program that can't be executed is reported here, not by the exit of a child.
  const bool started =
      posix_spawnp(&task, argv.front(), &actions, &attributes, argv.data(), environ) == 0;
  ::prlimit(0, RLIMIT_CORE, &own, nullptr);
  return started ? std::optional(task) : std::nullopt;
}

Processes::Processes(std::function<std::string()> editorCommand)
    : editorCommand_(std::move(editorCommand)) {
  std::signal(SIGCHLD, SIG_IGN);  // leaves no zombie
  ::getrlimit(RLIMIT_CORE, &coreLimit_);
}

std::optional<int> Processes::Shell(const std::string& commandLine, const std::string& file) {
  const std::optional<pid_t> task = Start(commandLine);
  ForgetOld();
  if (task) started_.push_back({file, *task, Clock::now()});
  return task;
}

void Processes::ForgetOld() {
  std::erase_if(started_,
                [](const Started& viewer) { return Clock::now() - viewer.when >= TakesFile; });
}

void Processes::LetViewerTake(const std::string& path) {
  ForgetOld();
  for (const Started& viewer : started_) {
    if (path.empty() || viewer.file == path) {
      WaitUntilTaken(viewer.file, viewer.task, viewer.when + TakesFile);
    }
  }
}

void Processes::OpenInEditor(const std::string& path) {
  std::string command = editorCommand_();
  const std::size_t place = command.find("%1");
  if (place == command.npos) return;
  // The file that a link leads to, so that the editor shows the name of what it changes and asks
  // for the rights that are needed there.
  std::error_code unresolved;
  const std::string file = std::filesystem::canonical(path, unresolved).string();
  Start(command.replace(place, 2, unresolved ? path : file));
}

}  // namespace quorbin
