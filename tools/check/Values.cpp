#include "Values.hpp"

#include <algorithm>
#include <optional>
#include <set>

#include "CheckHost.hpp"
#include "Configuration.hpp"
#include "PrivateProfile.hpp"
#include "ResolveExtension.hpp"
#include "Text.hpp"
#include "Words.hpp"

namespace quorbin::check {

namespace {

// Any peer and any extension will do: only the default text of the read of the entry matters.
constexpr std::string_view SomePeer = "192.0.2.1";
constexpr std::string_view SomeExtension = ".any";

Origin FromDefault() { return {.From = Source::Default}; }

// Where a setting comes from, if its read may have led to another source.
Origin OriginInEffect(const RecordedService& service, const StartUpSetting& setting,
                      const SettingRead& read) {
  if (setting.Key == Key::HostAllow && service.Form.ControlMode == 1) {
    return service.OriginOf(*service.Find(Section::Global, Key::Control));
  }
  const RegistryQuery* const query = service.PortQuery();
  if (setting.Key == Key::Port && query != nullptr) {
    if (!query->Found) return FromDefault();
    return {.From = Source::Registry, .Place = query->File};
  }
  return service.OriginOf(read);
}

std::vector<SettingRead> ReadEntries(RecordedService& service, std::string_view section,
                                     const std::string& defaultText) {
  std::vector<std::string> keys;
  std::set<std::string> seen;
  service.Form.Profile.ForEachKey(section, SettingsPath(service.Form), [&](std::string_view key) {
    if (!IsReserved(section, key) && seen.insert(LCase(key)).second) keys.emplace_back(key);
  });
  return service
      .Record([&](Form1& form) {
        for (const std::string& key : keys) {
          ReadSetting(form, section, key, defaultText, LongValue);
        }
      })
      .Reads;
}

void AddSection(const RecordedService& service, const SectionInEffect& section,
                std::vector<Fact>& facts) {
  const auto& [byDefault, entries] = section;
  facts.push_back(
      {byDefault.Read.Section, std::string(Key::Default), byDefault.Keyword, byDefault.Of});
  for (const SettingRead& entry : entries) {
    facts.push_back({entry.Section, entry.Key, entry.Answer, service.OriginOf(entry)});
  }
}

}  // namespace

const std::vector<StartUpSetting>& StartUpSettings() {
  static const std::vector<StartUpSetting> settings = {
      {Section::Global, Key::Control, ValueKind::Number16,
       [](const Form1& form) { return std::to_string(form.ControlMode); }},
      {Section::Global, Key::Icon, ValueKind::Number16,
       [](const Form1& form) { return std::to_string(form.IconMode); }},
      {Section::Global, Key::Port, ValueKind::Number32,
       [](const Form1& form) { return std::to_string(form.Winsock1.LocalPort()); }},
      {Section::Global, Key::Prefix, ValueKind::Text,
       [](const Form1& form) { return form.Session.NamePrefix; }},
      {Section::Global, Key::Listen, ValueKind::Text,
       [](const Form1& form) {
         return form.ListenAddress.empty() ? std::string("all addresses") : form.ListenAddress;
       }},
      {Section::Global, Key::Parameters, ValueKind::Text,
       [](const Form1& form) {
         return std::string(form.ParametersAllowed ? Keyword::Allow : Keyword::Deny);
       }},
      {Section::Hosts, Key::HostAllow, ValueKind::Number16,
       [](const Form1& form) { return std::to_string(form.HostMode); }},
      {Section::Extensions, Key::ExtAllow, ValueKind::Number16,
       [](const Form1& form) { return std::to_string(form.ExtMode); }},
  };
  return settings;
}

bool IsReserved(std::string_view section, std::string_view key) {
  if (!EqualsNoCase(section, Section::Global) && EqualsNoCase(key, Key::Default)) return true;
  return std::ranges::any_of(StartUpSettings(), [&](const StartUpSetting& setting) {
    return EqualsNoCase(section, setting.Section) && EqualsNoCase(key, setting.Key);
  });
}

DefaultInEffect DefaultOf(RecordedService& service, const Trace& decision) {
  // The read of an entry comes straight after the one of Default, with the outcome as default text.
  const auto read = std::ranges::find(decision.Reads, Key::Default, &SettingRead::Key);
  DefaultInEffect found = {.Keyword = std::next(read)->DefaultText, .Read = *read};
  // A valid text gives the same keyword whatever is built in.
  const auto taken = [&](std::string_view builtIn) {
    return ReadDefault(service.Form, read->Section, builtIn, read->Capacity);
  };
  found.Ignored = read->Line != 0 && taken(Keyword::Deny) != taken(Keyword::Allow);
  found.Of = found.Ignored ? FromDefault() : service.OriginOf(*read);
  return found;
}

SectionsInEffect ReadSections(RecordedService& service) {
  SectionsInEffect sections;
  const Trace host = service.Record([](Form1& form) { CheckHost(form, std::string(SomePeer)); });
  if (!host.Reads.empty()) {
    SectionInEffect& hosts = sections.Hosts.emplace();
    hosts.Default = DefaultOf(service, host);
    hosts.Entries = ReadEntries(service, Section::Hosts, hosts.Default.Keyword);
  }
  const Trace extension = service.Record([](Form1& form) {
    std::string ignored;
    ResolveExtension(form, std::string(SomeExtension), ignored);
  });
  sections.Extensions.Default = DefaultOf(service, extension);
  sections.Extensions.Entries =
      ReadEntries(service, Section::Extensions, sections.Extensions.Default.Keyword);
  return sections;
}

std::vector<Fact> ListValues(RecordedService& service, const SectionsInEffect& sections) {
  std::vector<Fact> facts;
  for (const StartUpSetting& setting : StartUpSettings()) {
    const SettingRead* const read = service.Find(setting.Section, setting.Key);
    if (read == nullptr) continue;  // the start ended before it
    facts.push_back({std::string(setting.Section), std::string(setting.Key),
                     setting.InEffect(service.Form), OriginInEffect(service, setting, *read)});
  }
  const TransferSession& session = service.Form.Session;
  facts.push_back({"environment", "TMP", session.TempDir, service.OriginOfTempDir()});
  facts.push_back({"environment",
                   "SystemRoot",
                   session.SystemRootDir,
                   {.From = Source::Environment, .Place = "SystemRoot"}});
  if (sections.Hosts) AddSection(service, *sections.Hosts, facts);
  AddSection(service, sections.Extensions, facts);
  return facts;
}

}  // namespace quorbin::check
