#include "Warnings.hpp"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <utility>

#include "Allgemein.hpp"
#include "CheckHost.hpp"
#include "Configuration.hpp"
#include "HostKeys.hpp"
#include "LastError.hpp"
#include "PrivateProfile.hpp"
#include "Protocol.hpp"
#include "RegKeys.hpp"
#include "Text.hpp"
#include "Viewer.hpp"
#include "Words.hpp"

namespace quorbin::check {

namespace {

constexpr std::size_t QuotedLength = 60;  // bytes of a text in a warning
constexpr std::int32_t FirstFreePort = 1024;
constexpr mode_t WritableForOthers = S_IWGRP | S_IWOTH;

// The port that the settings and the registry lead to is no port, which ends the start.
bool PortIsNone(const RecordedService& service) {
  const std::int32_t port = service.Form.Winsock1.LocalPort();
  return service.Form.ListenAddress != LocalPeer && (port < 0 || port > LastPort);
}

std::string Quoted(std::string_view text) {
  std::string quoted = "'";
  quoted.append(text.substr(0, QuotedLength));
  if (text.size() > QuotedLength) quoted += "...";
  return quoted + "'";
}

// Collects warnings, most of which are about a line of the one file.
class Collector {
 public:
  explicit Collector(const std::string& path) : path_(path) {}
  void AtLine(std::size_t line, std::string text) {
    onLines_.push_back({std::move(text), path_, line});
  }
  void OfFile(std::string text) { others_.push_back({std::move(text), path_, 0}); }
  void Other(std::string text) { others_.push_back({std::move(text), {}, 0}); }
  // At the entry of the read, or, if the file has none, at no line.
  void AtRead(const SettingRead& read, std::string text) {
    if (read.Line != 0)
      AtLine(read.Line, std::move(text));
    else
      Other(std::move(text));
  }
  std::vector<Warning> Take() {
    std::ranges::stable_sort(onLines_, {}, &Warning::Line);
    onLines_.insert(onLines_.end(), others_.begin(), others_.end());
    return std::move(onLines_);
  }

 private:
  const std::string& path_;
  std::vector<Warning> onLines_;
  std::vector<Warning> others_;
};

bool IsKnownSection(std::string_view name) {
  constexpr std::array known = {Section::Global, Section::Hosts, Section::Extensions};
  return std::ranges::any_of(known, [&](std::string_view one) { return EqualsNoCase(one, name); });
}

// Sections, keys and lines that the reader ignores.
void CheckLines(const SettingsSource& file, Collector& warnings) {
  std::map<std::string, std::size_t> sections;
  std::map<std::pair<std::string, std::string>, std::size_t> entries;
  SettingsLines lines(file.Bytes);
  while (const std::optional<SettingsLine> line = lines.Next()) {
    const std::string section = LCase(line->Section);
    switch (line->Kind) {
      case LineKind::Ignored:
        warnings.AtLine(line->Number,
                        Quoted(line->Text) + " is ignored: no key, no '=' or no section");
        break;
      case LineKind::Section:
        if (!IsKnownSection(section)) {
          warnings.AtLine(line->Number,
                          "unknown section " + Quoted(line->Section) + ": its lines are ignored");
        } else if (const auto [at, isNew] = sections.try_emplace(section, line->Number); !isNew) {
          warnings.AtLine(line->Number, "repeated section " + Quoted(line->Section) +
                                            ": counts as one with line " +
                                            std::to_string(at->second));
        }
        break;
      case LineKind::Entry: {
        if (!IsKnownSection(section)) break;
        const auto [at, isNew] = entries.try_emplace({section, LCase(line->Key)}, line->Number);
        if (!isNew) {
          warnings.AtLine(line->Number, "repeated key " + Quoted(line->Key) + ": line " +
                                            std::to_string(at->second) + " counts");
        } else if (EqualsNoCase(section, Section::Global) && !IsReserved(section, line->Key)) {
          warnings.AtLine(line->Number,
                          "unknown key " + Quoted(line->Key) + " of Global: it is ignored");
        }
        break;
      }
    }
  }
}

// A whole number in plain digits that fits its field counts as written; for any other a warning
// says what it counts as.
void CheckNumber(const SettingRead& read, const std::string& text, ValueKind kind,
                 Collector& warnings) {
  const std::int32_t counts = kind == ValueKind::Number16 ? WholeNumberFromText<std::int16_t>(text)
                                                          : WholeNumberFromText<std::int32_t>(text);
  const double number = std::nearbyint(NumberFromText(text));
  std::string_view digits = text;
  if (digits.starts_with('-') || digits.starts_with('+')) digits.remove_prefix(1);
  const bool plain = !digits.empty() && digits.find_first_not_of("0123456789") == digits.npos;
  const std::string what = Quoted(text);
  if (number != counts) {
    warnings.AtRead(read, read.Key + ": " + what + " is too large for its field: counts as 0");
  } else if (!plain && number == 0 && text.find_first_of("0123456789") == text.npos) {
    warnings.AtRead(read, read.Key + ": " + what + " is no number: counts as 0");
  } else if (!plain) {
    warnings.AtRead(read, read.Key + ": " + what + " counts as " + std::to_string(counts));
  }
}

void CheckCut(const SettingRead& read, Collector& warnings) {
  if (!read.Cut) return;
  warnings.AtRead(
      read, read.Key + ": the value is cut after " + std::to_string(read.Answer.size()) + " bytes");
}

void CheckStartUp(RecordedService& service, Collector& warnings) {
  for (const StartUpSetting& setting : StartUpSettings()) {
    const SettingRead* const read = service.Find(setting.Section, setting.Key);
    if (read == nullptr || read->Line == 0) continue;
    CheckCut(*read, warnings);
    if (setting.Kind != ValueKind::Text) {
      CheckNumber(*read, read->Answer, setting.Kind, warnings);
    }
  }
  const Form1& form = service.Form;
  if (form.HostMode == HostModeLink && form.ControlMode == 0) {
    warnings.AtRead(*service.Find(Section::Hosts, Key::HostAllow),
                    "host_allow=3 while Control is 0: nobody is let in");
  }
  // The prefix without a name of its own: the separator and the dot.
  if (form.Session.NamePrefix == std::string(1, PathSeparator) + '.') {
    const SettingRead* const prefix = service.Find(Section::Global, Key::Prefix);
    if (prefix != nullptr) {
      warnings.AtRead(*prefix,
                      "Prefix is empty: every hidden file in the directory of the "
                      "received files is deleted");
    }
  }
  if (const RegistryQuery* const query = service.PortQuery(); query != nullptr && query->Found) {
    const SettingRead registered = {.Key = "registry value " + query->KeyPath + "\\" +
                                           query->ValueName};
    const std::string text =
        ReadRegValue(service.Form, HKEY_CLASSES_ROOT, query->KeyPath, query->ValueName);
    CheckNumber(registered, text, ValueKind::Number32, warnings);
  }
  if (!service.AtStart.Message.empty() && !PortIsNone(service)) {
    // The last read is the one that ended the start.
    const SettingRead& last = service.AtStart.Reads.back();
    warnings.AtRead(last, last.Key + ": " + Quoted(last.Answer) +
                              " is none of its values: the service ends at its start");
  }
}

// The keyword that a value was meant to be, in any letter case, with anything after it and with or
// without its asterisk; empty if it looks like none.
std::string_view MeantKeyword(std::string_view value) {
  const bool asterisk = value.starts_with('*');
  const std::string lower = LCase(value.substr(asterisk ? 1 : 0));
  for (const std::string_view keyword : {Keyword::Deny, Keyword::Allow, Keyword::Reg}) {
    const std::string_view word = keyword.substr(1);
    if (!lower.starts_with(word)) continue;
    const std::string_view rest = std::string_view(lower).substr(word.size());
    // A program may have the name of a keyword; only a comment after it makes it look like one.
    const std::string_view trimmed = Trim(rest);
    if (rest.empty() || (asterisk && rest.find_first_of(" \t;#,.") == 0) ||
        trimmed.starts_with(';') || trimmed.starts_with('#')) {
      return keyword;
    }
  }
  return {};
}

// What is wrong with a value that is no keyword although it was meant to be one.
std::string NotExactly(std::string_view meant) {
  return meant.empty() ? std::string() : ", for it is not exactly " + std::string(meant);
}

void CheckDefault(const DefaultInEffect& found, Collector& warnings) {
  CheckCut(found.Read, warnings);
  if (!found.Ignored) return;
  warnings.AtRead(found.Read, "Default: " + Quoted(found.Read.Answer) + " counts as absent" +
                                  NotExactly(MeantKeyword(found.Read.Answer)) + "; " +
                                  found.Keyword + " is in effect");
}

void CheckHostEntry(const SettingRead& read, const std::string& hostDefault, Collector& warnings) {
  CheckCut(read, warnings);
  const std::string entry = Quoted(read.Key + "=" + read.Answer);
  if (const std::string why = WhyNoHost(read.Key); !why.empty()) {
    warnings.AtRead(read, Quoted(read.Key) + " matches no peer: " + why);
  } else if (read.Answer == hostDefault && IsAddress(read.Key)) {
    warnings.AtRead(read, entry + " is what Default says, so the name of the peer decides");
  }
  if (read.Answer != Keyword::Deny && read.Answer != Keyword::Allow) {
    warnings.AtRead(read, entry + " lets the peer in" + NotExactly(MeantKeyword(read.Answer)));
  }
}

// The command of an extension's entry: what would be started for a file with it.
void CheckCommand(RecordedService& service, const SettingRead& read, const Machine& machine,
                  Collector& warnings) {
  if (Trim(read.Answer).empty()) {
    warnings.AtRead(read, Quoted(read.Key + "=") + " has no command: such files are refused");
    return;
  }
  const std::string ext = "." + LCase(read.Key);
  const ViewerStart start = ViewerOf(service, {.Ext = ext, .ViewerCmd = read.Answer});
  if (start.RunsReceivedFile || start.Arguments.empty()) return;
  const std::string name = "a b" + ext;
  const ViewerStart blank =
      ViewerOf(service, {.Ext = ext, .ViewerCmd = read.Answer, .FileName = name});
  const auto whole = [&name](const std::string& argument) {
    return argument.find(name) != argument.npos;
  };
  if (std::ranges::none_of(blank.Arguments, whole)) {
    const bool placed = read.Answer.find("%1") != read.Answer.npos;
    warnings.AtRead(read, "the command of " + Quoted(read.Key) +
                              (placed ? " has %1 without quotation marks"
                                      : " has no %1: the file is put at its end") +
                              ", where a name with blanks adds arguments");
  }
  if (machine.FindProgram(start.Arguments.front()).empty()) {
    warnings.AtRead(read, "the command of " + Quoted(read.Key) + ": no program " +
                              Quoted(start.Arguments.front()) + " is found");
  }
}

void CheckExtensionEntry(RecordedService& service, const SettingRead& read, const Machine& machine,
                         Collector& warnings) {
  CheckCut(read, warnings);
  if (read.Key.starts_with('.')) {
    warnings.AtRead(read, "extension " + Quoted(read.Key) +
                              " has its dot: write it without, or it matches nothing");
  }
  if (LCase(read.Key) != read.Key) {
    warnings.AtRead(read, "extension " + Quoted(read.Key) +
                              " is in upper case: it counts for every letter case");
  }
  if (read.Answer == Keyword::Deny || read.Answer == Keyword::Reg) return;
  const std::string_view meant = MeantKeyword(read.Answer);
  if (!meant.empty() || read.Answer.starts_with('*')) {
    // As an entry *allow is no keyword.
    warnings.AtRead(read, Quoted(read.Key + "=" + read.Answer) + " is taken for a command" +
                              NotExactly(meant == Keyword::Allow ? Keyword::Reg : meant));
    return;
  }
  CheckCommand(service, read, machine, warnings);
}

void CheckSections(RecordedService& service, const SectionsInEffect& sections,
                   const Machine& machine, Collector& warnings) {
  if (sections.Hosts) {
    const auto& [byDefault, entries] = *sections.Hosts;
    CheckDefault(byDefault, warnings);
    const SettingRead* const mode = service.Find(Section::Hosts, Key::HostAllow);
    if (byDefault.Read.Line == 0 && mode->Line == 0) {
      warnings.Other(
          "section Hosts has neither Default nor host_allow: peers without an entry are "
          "let in");
    }
    for (const SettingRead& entry : entries) CheckHostEntry(entry, byDefault.Keyword, warnings);
  }
  CheckDefault(sections.Extensions.Default, warnings);
  for (const SettingRead& entry : sections.Extensions.Entries) {
    CheckExtensionEntry(service, entry, machine, warnings);
  }
}

void CheckSettingsFile(const std::string& path, Collector& warnings) {
  struct stat status;
  if (::stat(path.c_str(), &status) != 0) return;
  if ((status.st_mode & WritableForOthers) != 0) {
    warnings.OfFile("the settings can be written by others than their owner");
  }
  if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
    warnings.OfFile("the settings belong to another user");
  }
}

void CheckDirectory(const RecordedService& service, Collector& warnings) {
  const Source source = service.OriginOfTempDir().From;
  if (source == Source::Launcher) return;
  if (source == Source::Default) {
    warnings.Other("TMP is not set: received files go to the directory of the program");
  }
  const std::string& directory = service.Form.Session.TempDir;
  struct stat status;
  if (::stat(directory.c_str(), &status) != 0) {
    warnings.Other("the directory of the received files, " + directory + ": " +
                   LastError().message());
  } else if (!S_ISDIR(status.st_mode)) {
    warnings.Other("the directory of the received files, " + directory + ", is none");
  } else if (::access(directory.c_str(), W_OK | X_OK) != 0) {
    warnings.Other("the directory of the received files, " + directory + ", can't be written");
  } else if ((status.st_mode & WritableForOthers) != 0) {
    warnings.Other("the directory of the received files, " + directory +
                   ", can be written by others");
  }
}

// On a port the loopback is everybody on this machine, in whatever account.
void CheckLoopback(RecordedService& service, Collector& warnings) {
  const Form1& form = service.Form;
  if (form.ListenAddress == LocalPeer || !form.ParametersAllowed || form.HostMode == HostModeLink) {
    return;
  }
  for (const char* const address : {"127.0.0.1", "::1"}) {
    bool admitted = false;
    const Trace trace =
        service.Record([&](Form1& asked) { admitted = CheckHost(asked, address).Allowed; });
    if (!admitted) continue;
    warnings.AtRead(trace.Reads.back(),
                    std::string(address) +
                        " may connect and choose parameters: every user of this machine can run "
                        "viewers with arguments of his own; set Listen=*local or Parameters=*deny");
    return;
  }
}

void CheckPort(RecordedService& service, const Machine& machine, Collector& warnings) {
  const SettingRead* const read = service.Find(Section::Global, Key::Port);
  if (read == nullptr || service.Form.ListenAddress == LocalPeer) return;
  const std::int32_t port = service.Form.Winsock1.LocalPort();
  const std::string name = "port " + std::to_string(port);
  if (PortIsNone(service)) {
    const std::string text = name + " is none: the service ends at its start";
    if (service.PortQuery() == nullptr) {
      warnings.AtRead(*read, text);
    } else {
      warnings.Other("registry value Quorbin\\Port: " + text);
    }
    return;
  }
  if (port != 0 && port < FirstFreePort) {
    warnings.AtRead(*read, name + " is below 1024: an ordinary user may not listen on it");
    return;
  }
  // The running service holds its own port.
  if (port == 0 || machine.RunningService()) return;
  const std::error_code error = machine.TryPort(service.Form.ListenAddress, port);
  if (error) warnings.AtRead(*read, name + " can't be listened on: " + error.message());
}

}  // namespace

std::vector<Warning> FindWarnings(RecordedService& service, const SettingsSource& file,
                                  const SectionsInEffect& sections, const Machine& machine) {
  Collector warnings(file.Path);
  CheckLines(file, warnings);
  CheckStartUp(service, warnings);
  CheckSections(service, sections, machine, warnings);
  CheckSettingsFile(file.Path, warnings);
  CheckDirectory(service, warnings);
  CheckPort(service, machine, warnings);
  CheckLoopback(service, warnings);
  return warnings.Take();
}

}  // namespace quorbin::check
