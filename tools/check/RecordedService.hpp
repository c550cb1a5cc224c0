#pragma once

// The service's decisions without the service: Form1 over the real settings and registry, with a
// record of everything that its routines ask and are answered. It opens no port, writes and
// deletes no file and starts no program.

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "ConsoleDisplay.hpp"
#include "ConsoleFront.hpp"
#include "Findings.hpp"
#include "Form1.hpp"

namespace quorbin::check {

// One read of the settings file.
struct SettingRead {
  std::string Section = {};
  std::string Key = {};
  std::string DefaultText = {};
  std::string Answer = {};
  std::size_t Capacity = 0;  // of the buffer, bytes
  std::size_t Line = 0;      // of the entry that answered; 0: the default text did
  bool Cut = false;          // the file holds more than was taken
};

// One question to the registry.
struct RegistryQuery {
  std::string KeyPath = {};
  std::string ValueName = {};
  bool Found = false;
  std::string File = {};  // the classes.reg that answered; empty: the desktop's associations
};

struct NameLookup {
  std::string Address;
  std::string Name;  // empty: none
};

struct Trace {
  std::vector<SettingRead> Reads;
  std::vector<RegistryQuery> Queries;
  std::vector<NameLookup> Lookups;
  std::vector<std::string> Variables;  // of the environment that were asked for and are set
  std::vector<std::string> Started;    // command lines
  std::string Message;                 // that the start would end with; else empty
};

// The settings file: its path, and its bytes for the numbers of lines.
struct SettingsSource {
  std::string Path;
  std::string Bytes;
};

// What answers the questions. Everything outlives the RecordedService.
struct Sources {
  SettingsFile& Profile;
  const SettingsSource& File;
  RegistryReader& Registry;
  std::function<std::string()> RegistryFile;  // that gave the last answer, empty for the desktop
  AddressResolver& Resolver;
  Source NamesFrom;     // what the resolver is
  std::string AppPath;  // directory of the service's program
  std::function<std::string(const std::string&)> Environ;
  std::function<bool(const std::string&)> IsListenAddress;  // as Winsock::SetLocalAddress decides
  // The launcher's directory of received files, which it makes; empty if it need not name one.
  std::string LauncherTmp = {};
};

class RecordingProfile final : public SettingsFile {
 public:
  RecordingProfile(const Sources& sources, Trace& trace) : sources_(sources), trace_(trace) {}
  std::uint32_t GetPrivateProfileString(std::string_view section, std::string_view key,
                                        std::string_view defaultText, std::span<char> buffer,
                                        const std::string& path) override;
  void ForEachKey(std::string_view section, const std::string& path,
                  const KeyVisitor& visit) override;

 private:
  const Sources& sources_;
  Trace& trace_;
};

class RecordingRegistry final : public RegistryReader {
 public:
  RecordingRegistry(const Sources& sources, Trace& trace) : sources_(sources), trace_(trace) {}
  std::optional<RegValue> QueryValue(std::uint32_t RootKey, const std::string& KeyPath,
                                     const std::string& ValueName) override;

 private:
  const Sources& sources_;
  Trace& trace_;
};

class RecordingResolver final : public AddressResolver {
 public:
  RecordingResolver(const Sources& sources, Trace& trace) : sources_(sources), trace_(trace) {}
  std::string ResolverName(const std::string& ResolverAddress) override;

  bool Asks = false;  // false: no address has a name, and nobody is asked

 private:
  const Sources& sources_;
  Trace& trace_;
};

class RecordingStarter final : public ProcessStarter {
 public:
  explicit RecordingStarter(Trace& trace) : trace_(trace) {}
  std::optional<int> Shell(const std::string& commandLine, const std::string& file) override;
  void LetViewerTake(const std::string& /*path*/) override {}
  void OpenInEditor(const std::string& /*path*/) override {}

 private:
  Trace& trace_;
};

// Thrown where the service would end.
struct ServiceEnds {};

class RecordingComputer final : public Computer {
 public:
  RecordingComputer(const Sources& sources, Trace& trace) : sources_(sources), trace_(trace) {}
  bool PrevInstance() override { return false; }
  std::string EXEName() const override { return "Quorbin"; }
  std::string AppPath() const override { return sources_.AppPath; }
  std::string Environ(const std::string& name) const override;
  void MsgBox(const std::string& text, const std::string& title) override;
  [[noreturn]] void End(int /*status*/) override { throw ServiceEnds(); }

 private:
  const Sources& sources_;
  Trace& trace_;
};

// A socket that keeps its port and does nothing else.
class IdleSocket final : public Winsock {
 public:
  explicit IdleSocket(std::function<bool(const std::string&)> isListenAddress)
      : isListenAddress_(std::move(isListenAddress)) {}
  int State() const override { return 0; }
  std::int32_t LocalPort() const override { return port_; }
  void SetLocalPort(std::int32_t port) override { port_ = port; }
  bool SetLocalAddress(const std::string& address) override { return isListenAddress_(address); }
  void Close() override {}
  std::error_code Listen() override { return {}; }
  void Accept(int /*requestID*/) override {}
  std::string_view GetData() override { return {}; }
  void SendData(std::string_view /*bytes*/) override {}
  std::string RemoteHostIP() const override { return {}; }
  std::string RemoteHost() const override { return {}; }

 private:
  std::function<bool(const std::string&)> isListenAddress_;
  std::int32_t port_ = 0;
};

class IdleFiles final : public FileSystem {
 public:
  void Kill(const std::string& /*path*/) override {}
  void KillPrefix(const std::string& /*pathPrefix*/) override {}
  std::error_code OpenForOutput(const std::string& /*path*/) override { return {}; }
  std::error_code OpenForBinary(const std::string& /*path*/) override { return {}; }
  std::error_code Write(std::string_view /*block*/, std::string_view /*lineEnd*/) override {
    return {};
  }
  std::error_code Close() override { return {}; }
  void MakeExecutable(const std::string& /*path*/) override {}
};

class IdleLink final : public LinkChannel {
 public:
  void SetLinkMode(int /*mode*/) override {}
};

class IdleJournal final : public Journal {
 public:
  void Write(const JournalEntry& /*entry*/) override {}
};

class RecordedService {
 public:
  explicit RecordedService(const Sources& sources);
  RecordedService(const RecordedService&) = delete;
  RecordedService& operator=(const RecordedService&) = delete;

  // The service's start. AtStart.Message is set if it would end there.
  void Start();

  // What the routine asks when it runs on the Form1.
  template <typename Routine>
  Trace Record(Routine routine) {
    trace_ = {};
    routine(Form);
    return std::exchange(trace_, {});
  }

  // From here on an address may have a name, which may take seconds.
  void UseNameService() { resolver_.Asks = true; }

  // Where the directory of the received files comes from.
  Origin OriginOfTempDir() const;
  // Where the answer of a read comes from.
  Origin OriginOf(const SettingRead& read) const;
  // Where the names of peers come from.
  Origin OriginOfNames() const { return {.From = sources_.NamesFrom}; }
  // The read of a setting at the start; nullptr if it was not read.
  const SettingRead* Find(std::string_view section, std::string_view key) const;
  // The question for the registry's port; nullptr if the settings have one.
  const RegistryQuery* PortQuery() const;

  Trace AtStart;

 private:
  const Sources& sources_;
  Trace trace_;
  RecordingProfile profile_{sources_, trace_};
  RecordingRegistry registry_{sources_, trace_};
  RecordingResolver resolver_{sources_, trace_};
  RecordingStarter starter_{trace_};
  RecordingComputer computer_{sources_, trace_};
  IdleSocket socket_{sources_.IsListenAddress};
  IdleFiles files_;
  IdleLink link_;
  IdleJournal journal_;
  ConsoleDisplay display_{[](std::string_view) {}};
  ConsoleWindow window_{[] {}};
  NoTray tray_;

 public:
  Form1 Form;
};

}  // namespace quorbin::check
