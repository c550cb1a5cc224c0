#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "EventLoop.hpp"
#include "SettingsFile.hpp"

namespace quorbin {

// Ignored: not a comment, but without a key, an equals sign or a section above it.
enum class LineKind { Section, Entry, Ignored };

// A line of a settings file as the reader understands it; the texts are views into the file's
// bytes, without the surrounding blanks.
struct SettingsLine {
  LineKind Kind = LineKind::Ignored;
  std::size_t Number = 0;  // from 1
  std::string_view Text;
  std::string_view Section;  // the one that the line is in, or opens
  std::string_view Key;      // of an entry, never empty
  std::string_view Value;
};

// The lines of a settings file's bytes, which must outlive the object. Empty lines and comments
// are left out.
class SettingsLines {
 public:
  explicit SettingsLines(std::string_view file);
  // nullopt after the last line.
  std::optional<SettingsLine> Next();

 private:
  std::string_view rest_;
  std::size_t number_ = 0;
  std::optional<std::string_view> section_;
};

// The line of the key in a settings file's bytes. nullopt if the section or the key is missing; an
// empty key is never found. Of repeated keys the first counts, and a repeated section counts as
// one.
std::optional<SettingsLine> FindEntry(std::string_view file, std::string_view section,
                                      std::string_view key);

// The value on that line.
std::optional<std::string_view> FindSetting(std::string_view file, std::string_view section,
                                            std::string_view key);

// Visits the keys of the section in their order.
void VisitKeys(std::string_view file, std::string_view section, const KeyVisitor& visit);

// The settings file in the private profile format. It is read in full at the first call of an
// event, so that all answers of one event come from one version of a file that is replaced
// meanwhile, and a change counts from the next event on. If a read fails for a lack of resources,
// the version last read still counts: a lack of descriptors must not lift a refusal.
class PrivateProfile final : public SettingsFile {
 public:
  // The loop's deferred tasks mark the end of an event; it must outlive the object. Start-up is one
  // event.
  explicit PrivateProfile(EventLoop& loop) : loop_(loop) {}

  std::uint32_t GetPrivateProfileString(std::string_view section, std::string_view key,
                                        std::string_view defaultText, std::span<char> buffer,
                                        const std::string& path) override;
  void ForEachKey(std::string_view section, const std::string& path,
                  const KeyVisitor& visit) override;

 private:
  // The bytes of the file, read once per event.
  const std::string& Read(const std::string& path);

  EventLoop& loop_;
  std::string path_;  // of the file that the running event has read; empty: none yet
  std::string bytes_;
};

}  // namespace quorbin
