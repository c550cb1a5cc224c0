#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "SettingsFile.hpp"

namespace quorbin {

// The value of the key in a settings file's bytes: a view into them, without the blanks round it.
// Nothing if the section or the key is missing; a key of no characters finds nothing. Of repeated
// keys the first counts, and a repeated section counts as one.
std::optional<std::string_view> FindSetting(std::string_view file, std::string_view section,
                                            std::string_view key);

// The keys of the section, in their order.
std::vector<std::string> FindKeys(std::string_view file, std::string_view section);

// The settings file in the private profile format, read whole at each call, so that a file that
// is replaced meanwhile is seen as the old one or the new one. Where the system lacks the means for
// a reading, the file stands as it was last read: a lack of descriptors must not lift a refusal.
class PrivateProfile : public SettingsFile {
 public:
  std::uint32_t GetPrivateProfileString(std::string_view section, std::string_view key,
                                        std::string_view defaultText, std::span<char> buffer,
                                        const std::string& path) override;
  std::vector<std::string> Keys(std::string_view section, const std::string& path) override;

 private:
  const std::string& Read(const std::string& path);

  std::string lastRead_;
};

}  // namespace quorbin
