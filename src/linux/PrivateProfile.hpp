#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "EventLoop.hpp"
#include "SettingsFile.hpp"

namespace quorbin {

// The value of the key in a settings file's bytes: a view into them, without the blanks round it.
// Nothing if the section or the key is missing; a key of no characters finds nothing. Of repeated
// keys the first counts, and a repeated section counts as one.
std::optional<std::string_view> FindSetting(std::string_view file, std::string_view section,
                                            std::string_view key);

// The keys of the section, in their order.
std::vector<std::string> FindKeys(std::string_view file, std::string_view section);

// The settings file in the private profile format. It is read whole at the first call of an event,
// so that all answers of one event come from one version of a file that is replaced meanwhile, and
// a change counts from the next event on. Where the system lacks the means for a reading, the file
// stands as it was last read: a lack of descriptors must not lift a refusal.
class PrivateProfile : public SettingsFile {
 public:
  // The loop says when an event is over; it must outlive the object. The start-up is one event.
  explicit PrivateProfile(EventLoop& loop) : loop_(loop) {}

  std::uint32_t GetPrivateProfileString(std::string_view section, std::string_view key,
                                        std::string_view defaultText, std::span<char> buffer,
                                        const std::string& path) override;
  std::vector<std::string> Keys(std::string_view section, const std::string& path) override;

 private:
  // The bytes of the file, read once per event.
  const std::string& Read(const std::string& path);

  EventLoop& loop_;
  std::string path_;  // of the file that the running event has read; empty: none yet
  std::string bytes_;
};

}  // namespace quorbin
