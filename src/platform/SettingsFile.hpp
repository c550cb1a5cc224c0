#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "PlatformInterface.hpp"

namespace quorbin {

using KeyVisitor = std::function<void(std::string_view key)>;

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

  // Visits the keys of the section in their order, as they are written there; none if the file or
  // the section is missing.
  virtual void ForEachKey(std::string_view section, const std::string& path,
                          const KeyVisitor& visit) = 0;
};

}  // namespace quorbin
