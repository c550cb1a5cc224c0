#include "InstanceDir.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "LastError.hpp"
#include "LinkPlace.hpp"
#include "Report.hpp"

namespace quorbin {

namespace {

constexpr mode_t OwnerOnly = S_IRWXU;

std::error_code OpenPrivate(const std::string& path, Fd& directory) {
  if (::mkdir(path.c_str(), OwnerOnly) != 0 && errno != EEXIST) return LastError();
  Fd opened(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat status;
  if (!opened || ::fstat(opened.Get(), &status) != 0) return LastError();
  if (status.st_uid != ::geteuid()) return std::make_error_code(std::errc::permission_denied);
  if ((status.st_mode & ALLPERMS) != OwnerOnly && ::fchmod(opened.Get(), OwnerOnly) != 0) {
    return LastError();
  }
  directory = std::move(opened);
  return {};
}

}  // namespace

InstanceDir::InstanceDir(const std::string& programName) {
  const std::string path = RunTimeDirectory(programName);
  if (const std::error_code error = OpenPrivate(path, directory_)) {
    Report("no run-time directory " + path + ", so no link channel: " + error.message());
  }
}

bool InstanceDir::Claim() {
  if (!directory_) return true;
  Fd lock(::openat(directory_.Get(), "instance.lock", O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC,
                   S_IRUSR | S_IWUSR));
  if (!lock) {
    Report("no instance.lock, so no link channel: " + LastError().message());
    return true;
  }
  if (::flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) return false;
    Report("instance.lock can't be held, so no link channel: " + LastError().message());
    return true;
  }
  // For whoever wants to end this run.
  if (::ftruncate(lock.Get(), 0) != 0 || ::dprintf(lock.Get(), "%d\n", ::getpid()) < 0) {
    Report("no process number in instance.lock: " + LastError().message());
  }
  lock_ = std::move(lock);
  // A socket that a killed run has left would look like a service to a sender.
  struct stat status;
  if (::fstatat(directory_.Get(), LocalSocketName.data(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
      S_ISSOCK(status.st_mode)) {
    ::unlinkat(directory_.Get(), LocalSocketName.data(), 0);
  }
  return true;
}

}  // namespace quorbin
