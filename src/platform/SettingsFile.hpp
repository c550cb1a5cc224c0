#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "PlatformInterface.hpp"

namespace quorbin {

class SettingsFile : public PlatformInterface {
 public:
  // Puts the value of the key into the buffer, or the default text if the file, the section or
  // the key is missing, and returns the number of bytes put there: at most one less than the
  // buffer holds. An empty value counts as found. Section and key match without regard to the
  // case of ASCII letters. Each event reads the file afresh, and all of its calls see one version.
  virtual std::uint32_t GetPrivateProfileString(std::string_view section, std::string_view key,
                                                std::string_view defaultText,
                                                std::span<char> buffer,
                                                const std::string& path) = 0;

  // The keys of the section in their order, as they are written there; none if the file or the
  // section is missing. The file is read afresh at every call.
  virtual std::vector<std::string> Keys(std::string_view section, const std::string& path) = 0;
};

}  // namespace quorbin
