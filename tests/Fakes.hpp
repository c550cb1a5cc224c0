#pragma once

// A platform in memory. Every effect is recorded in one journal, so that a test can see their
// order.

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Connection.hpp"
#include "FieldTexts.hpp"
#include "Form1.hpp"
#include "Lifecycle.hpp"
#include "PrivateProfile.hpp"
#include "Protocol.hpp"

namespace quorbin::fakes {

using Journal = std::vector<std::string>;

// A platform interface whose calls go into the journal.
template <typename Interface>
struct Fake : Interface {
  explicit Fake(Journal& j) : journal(j) {}

  template <typename... Parts>
  void Note(const Parts&... parts) {
    std::ostringstream entry;
    (entry << ... << parts);
    journal.push_back(entry.str());
  }
  // Notes the parts and returns the value.
  template <typename Value, typename... Parts>
  Value Noted(const Value& value, const Parts&... parts) {
    Note(parts...);
    return value;
  }

  Journal& journal;
};

struct FakeWinsock : Fake<Winsock> {
  using Fake::Fake;
  int State() const override { return state; }
  std::int32_t LocalPort() const override { return port; }
  void SetLocalPort(std::int32_t p) override { port = p; }
  bool SetLocalAddress(const std::string& address) override {
    return address.empty() || address == LocalPeer;
  }
  void Close() override { state = Noted(0, "Close"); }
  std::error_code Listen() override {
    state = Noted(2, "Listen");
    return taken;
  }
  void Accept(int requestID) override { state = Noted(7, "Accept ", requestID); }
  std::string_view GetData() override { return chunk; }
  void SendData(std::string_view bytes) override {
    Note("Send ", bytes);
    replies.emplace_back(bytes);
  }
  std::string RemoteHostIP() const override { return peer; }
  std::string RemoteHost() const override { return {}; }

  int state = 0;
  std::int32_t port = 0;
  std::error_code taken;  // what Listen returns
  std::string chunk, peer = "10.0.0.7";
  std::vector<std::string> replies;
};

struct FakeResolver : Fake<AddressResolver> {
  using Fake::Fake;
  std::string ResolverName(const std::string& ip) override { return Noted(name, "Resolve ", ip); }
  std::string name;
};

// The real reader over a text in memory.
struct FakeProfile : SettingsFile {
  std::uint32_t GetPrivateProfileString(std::string_view section, std::string_view key,
                                        std::string_view defaultText, std::span<char> buffer,
                                        const std::string& path) override {
    if (path != "/opt/q/quorbin.ini") return 0;
    const std::string_view value = FindSetting(ini, section, key).value_or(defaultText);
    return static_cast<std::uint32_t>(value.copy(buffer.data(), buffer.size() - 1));
  }
  void ForEachKey(std::string_view section, const std::string&, const KeyVisitor& visit) override {
    VisitKeys(ini, section, visit);
  }
  std::string ini;
};

// By key path, a bar, and the value's name.
struct FakeRegistry : RegistryReader {
  std::optional<RegValue> QueryValue(std::uint32_t root, const std::string& path,
                                     const std::string& name) override {
    const std::string key = path + "|" + name;
    if (root != HKEY_CLASSES_ROOT || !values.contains(key)) return {};
    return values.at(key);
  }
  std::map<std::string, RegValue> values;
};

// Opens and writes fail by their turn: 1 is the next one, 0 none.
struct FakeFiles : Fake<FileSystem> {
  using Fake::Fake;
  void Kill(const std::string& path) override {
    Note("Kill ", path);
    files.erase(path);
  }
  void KillPrefix(const std::string& prefix) override {
    Note("Kill ", prefix, "*");
    std::erase_if(files, [&](const auto& file) { return file.first.starts_with(prefix); });
  }
  std::error_code OpenForOutput(const std::string& path) override { return Open("text", path); }
  std::error_code OpenForBinary(const std::string& path) override { return Open("binary", path); }
  std::error_code Write(std::string_view block, std::string_view lineEnd) override {
    if (FailsNow(failWrite)) return std::make_error_code(std::errc::no_space_on_device);
    Note("Write");
    files.at(open).append(block).append(lineEnd);
    return {};
  }
  std::error_code Close() override {
    open = Noted(std::string(), "CloseFile");
    return lost;
  }
  void MakeExecutable(const std::string& path) override { Note("Execute ", path); }

  std::error_code Open(const std::string& kind, const std::string& path) {
    if (FailsNow(failOpen)) return std::make_error_code(std::errc::permission_denied);
    Note("Open ", kind, " ", path);
    open = path;
    files[path];
    return {};
  }
  static bool FailsNow(std::vector<int>& turns) {
    for (int& turn : turns) --turn;
    return std::erase(turns, 0) > 0;
  }

  std::map<std::string, std::string> files;
  std::string open;
  std::error_code lost;  // what a close returns
  std::vector<int> failOpen, failWrite;
};

// Both windows and the icon in the tray.
struct FakeWindows : Fake<MainWindow>, ShellTray, StatusDisplay {
  using Fake::Fake;
  void Write(Field field, std::string_view text) override {
    texts.Write(field, text);
    Note(NameOf(field), "=", text);
  }
  void AppendLine(std::string_view line) override {
    texts.AppendLine(line);
    Note("Satz+", line);
  }
  std::string Text(Field field) const override { return texts.Text(field); }
  void Show() override { Note("Show"); }
  void CloseWindow() override { Note("CloseControl"); }
  void EndOfEvent() override { Note("EndOfEvent"); }
  FormState WindowState() const override { return FormState::Minimised; }
  void SetWindowState(FormState s) override { Note("State ", static_cast<int>(s)); }
  bool Visible() const override { return visible; }
  void SetVisible(bool v) override { visible = Noted(v, v ? "Visible" : "Hidden"); }
  void BringToUser() override { Note("BringToUser"); }
  void SetCaption(const std::string& caption) override { Note("Caption ", caption); }
  void SetLabel2(const std::string& s) override { Note("Label2 ", std::ranges::count(s, '\n')); }
  double OuterWidth() const override { return 5641; }
  double ControlWidth(FormControl c) const override { return 1000 + static_cast<int>(c); }
  void SetLeft(FormControl c, double x) override { Note("Left ", static_cast<int>(c), " ", x); }
  void Close() override { Note("CloseMain"); }
  void AddIcon(const std::string& tip, Events /*events*/) override { Note("AddIcon ", tip); }
  void RemoveIcon() override { Note("RemoveIcon"); }
  FieldTexts texts;
  bool visible = true;
};

// Thrown by the end of the process.
struct Ended {};

// The computer, what it starts and its link channel.
struct FakeComputer : Fake<Computer>, ProcessStarter, LinkChannel {
  using Fake::Fake;
  bool PrevInstance() override { return previous; }
  std::string EXEName() const override { return "Quorbin"; }
  std::string AppPath() const override { return "/opt/q"; }
  std::string Environ(const std::string& name) const override {
    return environment.contains(name) ? environment.at(name) : "";
  }
  void MsgBox(const std::string& text, const std::string& title) override {
    Note("MsgBox ", title, ": ", text);
  }
  [[noreturn]] void End(int status) override { throw Noted(Ended(), "End ", status); }
  std::optional<int> Shell(const std::string& line, const std::string& /*file*/) override {
    return Noted(1234, "Shell ", line);
  }
  void LetViewerTake(const std::string& path) override { Note("LetTake ", path); }
  void OpenInEditor(const std::string& path) override { Note("Edit ", path); }
  void SetLinkMode(int mode) override { Note("LinkMode ", mode); }
  std::map<std::string, std::string> environment = {{"TMP", "/t"}};
  bool previous = false;
};

struct FakeAudit : quorbin::Journal {
  void Write(const JournalEntry& entry) override { entries.push_back(entry); }
  std::vector<JournalEntry> entries;
};

// Form1 on the fakes.
struct World {
  Journal journal;
  FakeWinsock winsock{journal};
  FakeResolver resolver{journal};
  FakeProfile profile;
  FakeRegistry registry;
  FakeFiles files{journal};
  FakeWindows windows{journal};
  FakeComputer computer{journal};
  FakeAudit audit;
  Form1 form{Platform{winsock, resolver, profile, registry, files, computer, windows, windows,
                      windows, computer, computer, audit}};

  // Started, with text files opened by "view".
  explicit World(const std::string& ini = "[Extensions]\ntxt=view \"%1\"\n") : World(NotStarted{}) {
    profile.ini = ini;
    Load(form);
    journal.clear();
  }
  struct NotStarted {};
  explicit World(NotStarted) {}

  void Connect() { ConnectionRequest(form, 5); }

  // One chunk; returns the reply to it.
  std::string Chunk(const std::string& bytes) {
    winsock.chunk = bytes;
    winsock.replies.clear();
    DataArrival(form, static_cast<std::int64_t>(bytes.size()));
    return std::accumulate(winsock.replies.begin(), winsock.replies.end(), std::string());
  }

  // Chunks separated by bars; returns the replies, a bar after each.
  std::string Talk(const std::string& chunks) {
    std::istringstream rest(chunks);
    std::string replies;
    for (std::string chunk; std::getline(rest, chunk, '|');) replies += Chunk(chunk) + "|";
    return replies;
  }

  // What has been noted since the last call, a semicolon after each entry.
  std::string Effects() {
    std::string all;
    for (const std::string& effect : std::exchange(journal, {})) all += effect + "; ";
    return all;
  }

  std::string Text(Field field) const { return windows.Text(field); }
};

}  // namespace quorbin::fakes
