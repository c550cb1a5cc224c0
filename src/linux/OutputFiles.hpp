#pragma once

#include <string>
#include <string_view>
#include <system_error>

#include "Fd.hpp"
#include "FileSystem.hpp"

namespace quorbin {

class OutputFiles final : public FileSystem {
 public:
  void Kill(const std::string& path) override;
  void KillPrefix(const std::string& pathPrefix) override;
  [[nodiscard]] std::error_code OpenForOutput(const std::string& path) override;
  [[nodiscard]] std::error_code OpenForBinary(const std::string& path) override;
  [[nodiscard]] std::error_code Write(std::string_view block, std::string_view lineEnd) override;
  std::error_code Close() override;
  void MakeExecutable(const std::string& path) override;

 private:
  std::error_code Open(const std::string& path);
  // Closes and deletes the file, which is ours but not fit for use.
  void Discard(const std::string& path);

  Fd file_;
};

}  // namespace quorbin
