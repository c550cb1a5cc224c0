#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "PlatformInterface.hpp"

namespace quorbin {

// Received files. At most one is open at a time, the output file.
class FileSystem : public PlatformInterface {
 public:
  // Deletes one file; a failure has no effect.
  virtual void Kill(const std::string& path) = 0;

  // Deletes every regular file and link whose name begins with the last part of pathPrefix, in the
  // directory that the rest of it names. Directories stay, failures have no effect. Without a name
  // in pathPrefix nothing is deleted.
  virtual void KillPrefix(const std::string& pathPrefix) = 0;

  // Opens the output file for its owner alone: created, or cut to length 0 if it exists. Never
  // goes through a link and never opens anything but a plain file of the program's own user;
  // each of these is a failure like any other. An output file still open is closed first.
  [[nodiscard]] virtual std::error_code OpenForOutput(const std::string& path) = 0;

  // The same at offset 0, without cutting what is there.
  [[nodiscard]] virtual std::error_code OpenForBinary(const std::string& path) = 0;

  // Appends all bytes of the block and of the line end to what was written before. After a failure
  // an unknown part of them is in the file. Nothing is buffered here: after a success the file
  // system has accepted all of them.
  [[nodiscard]] virtual std::error_code Write(std::string_view block,
                                              std::string_view lineEnd = {}) = 0;

  // Closes the output file, if one is open. An error means that written bytes are lost: a network
  // file system may report a full disk only here.
  virtual std::error_code Close() = 0;

  // Lets the owner run the file; a failure has no effect.
  virtual void MakeExecutable(const std::string& path) = 0;
};

}  // namespace quorbin
