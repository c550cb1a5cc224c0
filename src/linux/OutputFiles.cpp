#include "OutputFiles.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

#include "LastError.hpp"

namespace quorbin {

namespace {

constexpr mode_t OwnerOnly = S_IRUSR | S_IWUSR;

bool IsFileOrLink(int directory, const dirent& entry) {
  if (entry.d_type != DT_UNKNOWN) return entry.d_type == DT_REG || entry.d_type == DT_LNK;
  struct stat status;
  return ::fstatat(directory, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode));
}

// Refuses all but a plain file of our own. A second name (a hard link) may make it a file that is
// not ours to write to.
std::error_code CheckOurs(int file) {
  struct stat status;
  if (::fstat(file, &status) != 0) return LastError();
  if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid() || status.st_nlink != 1) {
    return std::make_error_code(std::errc::operation_not_permitted);
  }
  return {};
}

}  // namespace

void OutputFiles::Kill(const std::string& path) { ::unlink(path.c_str()); }

// Whose a file is does not matter: the prefix marks those that may go, in a directory of our own.
void OutputFiles::KillPrefix(const std::string& pathPrefix) {
  const std::size_t nameStart = pathPrefix.rfind('/') + 1;
  const std::string directory = nameStart == 0 ? "." : pathPrefix.substr(0, nameStart);
  const std::string_view namePrefix = std::string_view(pathPrefix).substr(nameStart);
  if (namePrefix.empty()) return;  // every file of the directory would match
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(directory.c_str()), ::closedir);
  if (!entries) return;
  const int descriptor = ::dirfd(entries.get());
  while (const dirent* entry = ::readdir(entries.get())) {
    if (std::string_view(entry->d_name).starts_with(namePrefix) &&
        IsFileOrLink(descriptor, *entry)) {
      ::unlinkat(descriptor, entry->d_name, 0);
    }
  }
}

std::error_code OutputFiles::Open(const std::string& path) {
  // O_NONBLOCK keeps a pipe planted at the path from blocking the program.
  file_.Reset(::open(path.c_str(),
                     O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC,
                     OwnerOnly));
  if (!file_) return LastError();
  std::error_code error = CheckOurs(file_.Get());
  if (error) {
    file_.Reset();
  } else if (::fchmod(file_.Get(), OwnerOnly) != 0) {
    error = LastError();
    Discard(path);
  }
  return error;
}

void OutputFiles::Discard(const std::string& path) {
  file_.Reset();
  ::unlink(path.c_str());
}

std::error_code OutputFiles::OpenForBinary(const std::string& path) { return Open(path); }

std::error_code OutputFiles::OpenForOutput(const std::string& path) {
  std::error_code error = Open(path);
  if (!error && ::ftruncate(file_.Get(), 0) != 0) {
    error = LastError();
    Discard(path);
  }
  return error;
}

std::error_code OutputFiles::Write(std::string_view block, std::string_view lineEnd) {
  while (!block.empty() || !lineEnd.empty()) {
    // writev only reads from the parts.
    std::array<iovec, 2> parts = {{{const_cast<char*>(block.data()), block.size()},
                                   {const_cast<char*>(lineEnd.data()), lineEnd.size()}}};
    const ssize_t written = ::writev(file_.Get(), parts.data(), parts.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return LastError();
    }
    // A disk that takes no more and reports no error would keep the program here forever.
    if (written == 0) return std::make_error_code(std::errc::no_space_on_device);
    const std::size_t ofBlock = std::min(static_cast<std::size_t>(written), block.size());
    block.remove_prefix(ofBlock);
    lineEnd.remove_prefix(static_cast<std::size_t>(written) - ofBlock);
  }
  return {};
}

std::error_code OutputFiles::Close() {
  const int file = file_.Release();
  return file >= 0 && ::close(file) != 0 ? LastError() : std::error_code();
}

void OutputFiles::MakeExecutable(const std::string& path) {
  const Fd file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (file) ::fchmod(file.Get(), OwnerOnly | S_IXUSR);
}

}  // namespace quorbin
