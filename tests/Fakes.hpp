#pragma once

// A platform in memory. Every effect goes into one journal, so that a test can see their order.

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Connection.hpp"
#include "FieldTexts.hpp"
#include "Form1.hpp"
#include "Lifecycle.hpp"
#include "PrivateProfile.hpp"

namespace quorbin::fakes {

using Journal = std::vector<std::string>;

struct FakeWinsock : Winsock {
  explicit FakeWinsock(Journal& j) : journal(j) {}
  int State() const override { return state; }
  std::int32_t LocalPort() const override { return port; }
  void SetLocalPort(std::int32_t p) override { port = p; }
  void Close() override {
    journal.emplace_back("Close");
    state = 0;
  }
  std::error_code Listen() override {
    journal.emplace_back("Listen");
    if (!listenError) state = 2;
    return listenError;
  }
  void Accept(int requestID) override {
    journal.push_back("Accept " + std::to_string(requestID));
    state = 7;
  }
  std::string_view GetData() override { return chunk; }
  void SendData(std::string_view bytes) override {
    journal.push_back("Send " + std::string(bytes));
    replies.emplace_back(bytes);
  }
  std::string RemoteHostIP() const override { return peer; }
  std::string RemoteHost() const override { return {}; }

  Journal& journal;
  int state = 0;
  std::int32_t port = 0;
  std::error_code listenError;
  std::string chunk;
  std::string peer = "10.0.0.7";
  std::vector<std::string> replies;
};

struct FakeResolver : AddressResolver {
  explicit FakeResolver(Journal& j) : journal(j) {}
  std::string ResolverName(const std::string& address) override {
    journal.push_back("Resolve " + address);
    return name;
  }
  Journal& journal;
  std::string name;
};

// The real reader over a text in memory.
struct FakeProfile : SettingsFile {
  std::uint32_t GetPrivateProfileString(std::string_view section, std::string_view key,
                                        std::string_view defaultText, std::span<char> buffer,
                                        const std::string& path) override {
    if (path != "/opt/q/quorbin.ini") return 0;
    const std::string_view value = FindSetting(ini, section, key).value_or(defaultText);
    const std::size_t count = std::min(value.size(), buffer.size() - 1);
    std::copy_n(value.begin(), count, buffer.begin());
    return static_cast<std::uint32_t>(count);
  }
  std::string ini;
};

struct FakeRegistry : RegistryReader {
  std::optional<RegValue> QueryValue(std::uint32_t root, const std::string& path,
                                     const std::string& name) override {
    const auto found = values.find(path + "|" + name);
    if (root != HKEY_CLASSES_ROOT || found == values.end()) return {};
    return found->second;
  }
  void Set(const std::string& pathAndName, const std::string& text) {
    values[pathAndName] = {RegType::REG_SZ, text + '\0'};
  }
  std::map<std::string, RegValue> values;
};

// Opens and writes fail by their turn: 1 is the next one, 0 none.
struct FakeFiles : FileSystem {
  explicit FakeFiles(Journal& j) : journal(j) {}
  void Kill(const std::string& path) override {
    journal.push_back("Kill " + path);
    files.erase(path);
  }
  void KillPrefix(const std::string& prefix) override {
    journal.push_back("Kill " + prefix + "*");
    std::erase_if(files, [&](const auto& file) { return file.first.starts_with(prefix); });
  }
  std::error_code OpenForOutput(const std::string& path) override { return Open("text", path); }
  std::error_code OpenForBinary(const std::string& path) override { return Open("binary", path); }
  std::error_code Write(std::string_view block, std::string_view lineEnd) override {
    if (FailsNow(failWrite)) return std::make_error_code(std::errc::no_space_on_device);
    journal.emplace_back("Write");
    files.at(open).append(block).append(lineEnd);
    return {};
  }
  void Close() override {
    journal.emplace_back("CloseFile");
    open.clear();
  }
  void MakeExecutable(const std::string& path) override { journal.push_back("Execute " + path); }

  std::error_code Open(const std::string& kind, const std::string& path) {
    if (FailsNow(failOpen)) return std::make_error_code(std::errc::permission_denied);
    journal.push_back("Open " + kind + " " + path);
    open = path;
    files[path];
    return {};
  }
  static bool FailsNow(std::vector<int>& turns) {
    for (int& turn : turns) --turn;
    return std::erase(turns, 0) > 0;
  }

  Journal& journal;
  std::map<std::string, std::string> files;
  std::string open;
  std::vector<int> failOpen;
  std::vector<int> failWrite;
};

struct FakeProcess : ProcessStarter {
  explicit FakeProcess(Journal& j) : journal(j) {}
  std::optional<int> Shell(const std::string& line) override {
    journal.push_back("Shell " + line);
    return task;
  }
  void OpenInEditor(const std::string& path) override { journal.push_back("Edit " + path); }
  Journal& journal;
  std::optional<int> task = 1234;
};

struct FakeDisplay : StatusDisplay {
  explicit FakeDisplay(Journal& j) : journal(j) {}
  void Write(Field field, std::string_view text) override {
    texts.Write(field, text);
    journal.push_back(std::string(FieldNames[static_cast<std::size_t>(field)]) + "=" +
                      std::string(text));
  }
  void AppendLine(std::string_view line) override {
    texts.AppendLine(line);
    journal.push_back("Satz+" + std::string(line));
  }
  std::string Text(Field field) const override { return texts.Text(field); }
  void Show() override { journal.emplace_back("Show"); }
  void CloseWindow() override { journal.emplace_back("CloseControl"); }
  void EndOfEvent() override {}
  Journal& journal;
  FieldTexts texts;
};

struct FakeWindow : MainWindow {
  explicit FakeWindow(Journal& j) : journal(j) {}
  FormState WindowState() const override { return state; }
  void SetWindowState(FormState s) override {
    journal.push_back("WindowState " + std::to_string(static_cast<int>(s)));
    state = s;
  }
  bool Visible() const override { return visible; }
  void SetVisible(bool v) override {
    journal.push_back(v ? "Visible" : "Hidden");
    visible = v;
  }
  void BringToUser() override { journal.emplace_back("BringToUser"); }
  WindowHandle Handle() const override { return 7; }
  WindowHandle Icon() const override { return 8; }
  void SetCaption(const std::string& caption) override { journal.push_back("Caption " + caption); }
  void SetLabel2(const std::string& caption) override {
    journal.push_back("Label2 " + std::to_string(std::ranges::count(caption, '\n')));
  }
  double OuterWidth() const override { return 5641; }
  double ControlWidth(FormControl control) const override {
    return control == FormControl::Label1 ? 1320 : 2670;
  }
  void SetLeft(FormControl control, double left) override {
    journal.push_back("Left " + std::to_string(static_cast<int>(control)) + " " +
                      std::to_string(left).substr(0, 6));
  }
  std::string StopsrvCaption() const override { return stopsrv; }
  void SetStopsrvCaption(const std::string& caption) override {
    journal.push_back("stopsrv=" + caption);
    stopsrv = caption;
  }
  void Close() override { journal.emplace_back("CloseMain"); }
  Journal& journal;
  FormState state = FormState::Minimised;
  bool visible = true;
  std::string stopsrv = "OK";
};

struct FakeTray : ShellTray {
  explicit FakeTray(Journal& j) : journal(j) {}
  void Shell_NotifyIcon(NotifyOperation operation, const NotifyRecord& record) override {
    journal.push_back("Notify " + std::to_string(static_cast<int>(operation)) + " hWnd " +
                      std::to_string(record.hWnd) + " flags " + std::to_string(record.uFlags));
    last = record;
  }
  WindowProc SetWindowProc(WindowHandle hWnd, WindowProc next) override {
    journal.push_back("SetWindowProc " + std::to_string(hWnd));
    return std::exchange(procedure, std::move(next));
  }
  Journal& journal;
  NotifyRecord last;
  WindowProc procedure = [this](WindowHandle, std::uint32_t, std::uintptr_t, std::intptr_t) {
    journal.emplace_back("OldWndProc");
    return std::intptr_t{99};
  };
};

struct FakeLink : LinkChannel {
  explicit FakeLink(Journal& j) : journal(j) {}
  void SetLinkMode(int mode) override { journal.push_back("LinkMode " + std::to_string(mode)); }
  Journal& journal;
};

struct Ended {
  int status;
};

struct FakeComputer : Computer {
  explicit FakeComputer(Journal& j) : journal(j) {}
  bool PrevInstance() override { return previous; }
  std::string EXEName() const override { return "Quorbin"; }
  std::string AppPath() const override { return "/opt/q"; }
  std::string Environ(const std::string& name) const override {
    const auto found = environment.find(name);
    return found == environment.end() ? "" : found->second;
  }
  void MsgBox(const std::string& text, int flags, const std::string& title) override {
    journal.push_back("MsgBox " + text + "|" + std::to_string(flags) + "|" + title);
  }
  [[noreturn]] void End(int status) override { throw Ended{status}; }
  Journal& journal;
  bool previous = false;
  std::map<std::string, std::string> environment = {{"TMP", "/t"}};
};

// Form1 on the fakes.
struct World {
  Journal journal;
  FakeWinsock winsock{journal};
  FakeResolver resolver{journal};
  FakeProfile profile;
  FakeRegistry registry;
  FakeFiles files{journal};
  FakeProcess process{journal};
  FakeDisplay display{journal};
  FakeWindow window{journal};
  FakeTray tray{journal};
  FakeLink link{journal};
  FakeComputer computer{journal};
  Form1 form{Platform{winsock, resolver, profile, registry, files, process, display, window, tray,
                      link, computer}};

  // Started, with text files opened by "view".
  explicit World(const std::string& ini = "[Extensions]\ntxt=view \"%1\"\n") {
    profile.ini = ini;
    Load(form);
    journal.clear();
  }

  void Connect() { ConnectionRequest(form, 5); }

  // One chunk; returns the replies to it, parted by bars.
  std::string Chunk(const std::string& bytes) {
    winsock.chunk = bytes;
    winsock.replies.clear();
    DataArrival(form, static_cast<std::int64_t>(bytes.size()));
    std::string replies;
    for (const std::string& reply : winsock.replies) {
      replies += (replies.empty() ? "" : "|") + reply;
    }
    return replies;
  }

  // All but the last chunk unseen; returns the replies to the last one.
  std::string Chunks(const std::vector<std::string>& chunks) {
    std::string replies;
    for (const std::string& chunk : chunks) replies = Chunk(chunk);
    return replies;
  }

  std::string Text(Field field) const { return display.Text(field); }
  std::string File(const std::string& name) const {
    const auto found = files.files.find("/t/f$~." + name);
    return found == files.files.end() ? "(none)" : found->second;
  }
};

}  // namespace quorbin::fakes
