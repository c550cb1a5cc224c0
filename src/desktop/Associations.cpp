#include "Associations.hpp"

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <sys/eventfd.h>

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "ExecLine.hpp"
#include "Fd.hpp"

namespace quorbin {

namespace {

constexpr std::size_t LongestExtension = 255;  // bytes, as long as a file name gets

struct Unref {
  void operator()(GAppInfo* app) const { g_object_unref(app); }
};
using AppPtr = std::unique_ptr<GAppInfo, Unref>;

// Takes over a text of the library, which may be null.
std::string Taken(char* text) {
  const std::unique_ptr<char, decltype(&g_free)> owner(text, g_free);
  return text == nullptr ? std::string() : std::string(text);
}

// The library aborts the program if it gets no descriptor for its thread, so it is called only
// while as many as it takes are free.
bool HasDescriptors() {
  std::array<Fd, 8> spare;
  for (Fd& descriptor : spare) descriptor.Reset(eventfd(0, EFD_CLOEXEC));
  return static_cast<bool>(spare.back());
}

std::string TypeOf(const std::string& extension) {
  std::string type = Taken(g_content_type_guess(("x" + extension).c_str(), nullptr, 0, nullptr));
  return g_content_type_is_unknown(type.c_str()) ? std::string() : type;
}

// The default application, then all for the type, the recommended ones first. The first call starts
// the library's one thread, which watches the directories of .desktop files and of mimeapps.list
// with all signals blocked, so a change counts at the next call. The MIME database is looked at
// again after 5 seconds at the earliest. No process and no bus connection is needed for either.
std::vector<AppPtr> Applications(const std::string& contentType) {
  std::vector<AppPtr> apps;
  apps.emplace_back(g_app_info_get_default_for_type(contentType.c_str(), FALSE));
  GList* const all = g_app_info_get_all_for_type(contentType.c_str());
  for (GList* link = all; link != nullptr; link = link->next) {
    apps.emplace_back(static_cast<GAppInfo*>(link->data));
  }
  g_list_free(all);
  return apps;
}

// What comes before a command to run it in a terminal; empty without a terminal.
std::string TerminalCommand() {
  constexpr std::array<std::pair<const char*, const char*>, 3> Terminals = {{
      {"xdg-terminal-exec", "xdg-terminal-exec "},
      {"x-terminal-emulator", "x-terminal-emulator -e "},
      {"xterm", "xterm -e "},
  }};
  for (const auto& [program, command] : Terminals) {
    if (!Taken(g_find_program_in_path(program)).empty()) return command;
  }
  return {};
}

}  // namespace

std::string ClassOfExtension(const std::string& Ext) {
  if (Ext.size() < 2 || Ext.size() > LongestExtension || Ext.front() != '.' ||
      Ext.find('/') != std::string::npos ||
      !g_utf8_validate(Ext.data(), static_cast<gssize>(Ext.size()), nullptr) || !HasDescriptors()) {
    return {};
  }
  std::string type = TypeOf(Ext);
  // Any name matches the pattern of its last extension, so .txt.exe would get the class of .exe and
  // bypass a setting that denies exe.
  for (std::size_t dot = Ext.find('.', 1); dot != std::string::npos; dot = Ext.find('.', dot + 1)) {
    if (TypeOf(Ext.substr(dot)) == type) return {};
  }
  return type;
}

std::string OpenCommandOfClass(const std::string& contentType) {
  if (!HasDescriptors()) return {};
  std::string inTerminal;
  for (const AppPtr& app : Applications(contentType)) {
    if (!app || !G_IS_DESKTOP_APP_INFO(app.get())) continue;
    GDesktopAppInfo* const entry = G_DESKTOP_APP_INFO(app.get());
    // An application that is only started over the session bus has no command line.
    const char* const exec = g_app_info_get_commandline(app.get());
    if (exec == nullptr) continue;
    const char* const path = g_desktop_app_info_get_filename(entry);
    std::string command = OpenCommandOfExec(
        exec, {g_app_info_get_name(app.get()), Taken(g_desktop_app_info_get_string(entry, "Icon")),
               path == nullptr ? "" : path});
    if (!g_desktop_app_info_get_boolean(entry, "Terminal") && !command.empty()) return command;
    if (inTerminal.empty()) inTerminal = std::move(command);
  }
  if (inTerminal.empty()) return {};
  const std::string terminal = TerminalCommand();
  return terminal.empty() ? std::string() : terminal + inTerminal;
}

}  // namespace quorbin
