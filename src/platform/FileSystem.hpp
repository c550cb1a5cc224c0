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

  // Deletes every regular file and link whose name begins with the last part of pathPrefix, in
  // the directory named by what stands before it. Directories stay, failures have no effect.
  virtual void KillPrefix(const std::string& pathPrefix) = 0;

  // Opens the output file for its owner alone: created, or cut to length 0 if it exists. Never
  // goes through a link and never opens anything but a plain file of the program's own user;
  // each of these is a failure like any other. An output file still open is closed first.
  [[nodiscard]] virtual std::error_code OpenForOutput(const std::string& path) = 0;

  // The same at offset 0, without cutting what is there.
  [[nodiscard]] virtual std::error_code OpenForBinary(const std::string& path) = 0;

  // Writes all bytes of the block and of the line end behind the last write. After a failure an
  // unknown part of them stands in the file. Nothing is kept back here: a success is in the file as
  // far as the file system tells.
  [[nodiscard]] virtual std::error_code Write(std::string_view block,
                                              std::string_view lineEnd = {}) = 0;

  // Closes the output file, if one is open. An error tells that written bytes are lost: the file
  // systems of a network find out only here that the disk is full.
  virtual std::error_code Close() = 0;

  // Lets the owner run the file; a failure has no effect.
  virtual void MakeExecutable(const std::string& path) = 0;
};

}  // namespace quorbin
