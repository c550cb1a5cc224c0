#pragma once

// What is in effect: each value that the service takes from outside, and where it comes from.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Findings.hpp"
#include "RecordedService.hpp"

namespace quorbin::check {

// How the text of a setting is interpreted.
enum class ValueKind { Number16, Number32, Text };

// One setting that is read at the start.
struct StartUpSetting {
  std::string_view Section;
  std::string_view Key;
  ValueKind Kind;
  std::string (*InEffect)(const Form1& form);
};
const std::vector<StartUpSetting>& StartUpSettings();

// True if the key has a meaning of its own in the section, other than an entry.
bool IsReserved(std::string_view section, std::string_view key);

// The keyword that a section's Default amounts to, and the read of it.
struct DefaultInEffect {
  std::string Keyword;
  SettingRead Read;
  bool Ignored = false;  // the file has a text there, but it counts as absent
  Origin Of = {};
};
// The default that a decision used, taken from the record of its questions.
DefaultInEffect DefaultOf(RecordedService& service, const Trace& decision);

// Each entry is read under its key as written; of repeated keys, the first.
struct SectionInEffect {
  DefaultInEffect Default;
  std::vector<SettingRead> Entries;
};

struct SectionsInEffect {
  std::optional<SectionInEffect> Hosts;  // nullopt if the table of the link channel decides
  SectionInEffect Extensions;
};

// Both take a service that has started.
SectionsInEffect ReadSections(RecordedService& service);
std::vector<Fact> ListValues(RecordedService& service, const SectionsInEffect& sections);

}  // namespace quorbin::check
