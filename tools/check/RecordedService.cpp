#include "RecordedService.hpp"

#include <algorithm>

#include "Lifecycle.hpp"
#include "PrivateProfile.hpp"

namespace quorbin::check {

namespace {

constexpr const char* TempVariable = "TMP";

}  // namespace

std::uint32_t RecordingProfile::GetPrivateProfileString(std::string_view section,
                                                        std::string_view key,
                                                        std::string_view defaultText,
                                                        std::span<char> buffer,
                                                        const std::string& /*path*/) {
  // The checker may be given a file other than the one next to the program.
  const std::uint32_t count = sources_.Profile.GetPrivateProfileString(section, key, defaultText,
                                                                       buffer, sources_.File.Path);
  SettingRead read = {.Section = std::string(section),
                      .Key = std::string(key),
                      .DefaultText = std::string(defaultText),
                      .Answer = std::string(buffer.data(), count),
                      .Capacity = buffer.size()};
  if (const std::optional<SettingsLine> line = FindEntry(sources_.File.Bytes, section, key)) {
    read.Line = line->Number;
    read.Cut = line->Value.size() > count;
  }
  trace_.Reads.push_back(std::move(read));
  return count;
}

void RecordingProfile::ForEachKey(std::string_view section, const std::string& /*path*/,
                                  const KeyVisitor& visit) {
  sources_.Profile.ForEachKey(section, sources_.File.Path, visit);
}

std::optional<RegValue> RecordingRegistry::QueryValue(std::uint32_t RootKey,
                                                      const std::string& KeyPath,
                                                      const std::string& ValueName) {
  std::optional<RegValue> value = sources_.Registry.QueryValue(RootKey, KeyPath, ValueName);
  trace_.Queries.push_back({.KeyPath = KeyPath,
                            .ValueName = ValueName,
                            .Found = value.has_value(),
                            .File = value ? sources_.RegistryFile() : std::string()});
  return value;
}

std::string RecordingResolver::ResolverName(const std::string& ResolverAddress) {
  std::string name;
  if (Asks) name = sources_.Resolver.ResolverName(ResolverAddress);
  trace_.Lookups.push_back({ResolverAddress, name});
  return name;
}

std::optional<int> RecordingStarter::Shell(const std::string& commandLine,
                                           const std::string& /*file*/) {
  trace_.Started.push_back(commandLine);
  return {};
}

std::string RecordingComputer::Environ(const std::string& name) const {
  if (name == TempVariable && !sources_.LauncherTmp.empty()) return sources_.LauncherTmp;
  std::string text = sources_.Environ(name);
  if (!text.empty()) trace_.Variables.push_back(name);
  return text;
}

void RecordingComputer::MsgBox(const std::string& text, const std::string& /*title*/) {
  trace_.Message = text;
}

RecordedService::RecordedService(const Sources& sources)
    : sources_(sources),
      Form({.Winsock1 = socket_,
            .Socket1 = resolver_,
            .Profile = profile_,
            .Registry = registry_,
            .Files = files_,
            .Process = starter_,
            .FControl = display_,
            .Window = window_,
            .Tray = tray_,
            .Link = link_,
            .App = computer_,
            .Audit = journal_}) {}

void RecordedService::Start() {
  AtStart = Record([](Form1& form) {
    try {
      Load(form);
    } catch (const ServiceEnds&) {
      // The message is in the trace.
    }
  });
}

Origin RecordedService::OriginOfTempDir() const {
  if (!sources_.LauncherTmp.empty()) return {.From = Source::Launcher};
  for (const char* const variable : {TempVariable, "TEMP"}) {
    if (std::ranges::find(AtStart.Variables, variable) != AtStart.Variables.end()) {
      return {.From = Source::Environment, .Place = variable};
    }
  }
  return {.From = Source::Default};
}

Origin RecordedService::OriginOf(const SettingRead& read) const {
  if (read.Line == 0) return {.From = Source::Default};
  return {.From = Source::File, .Place = sources_.File.Path, .Line = read.Line};
}

const SettingRead* RecordedService::Find(std::string_view section, std::string_view key) const {
  const auto read = std::ranges::find_if(AtStart.Reads, [&](const SettingRead& candidate) {
    return candidate.Section == section && candidate.Key == key;
  });
  return read == AtStart.Reads.end() ? nullptr : &*read;
}

const RegistryQuery* RecordedService::PortQuery() const {
  return AtStart.Queries.empty() ? nullptr : &AtStart.Queries.front();
}

}  // namespace quorbin::check
