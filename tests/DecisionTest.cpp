// The decisions that depend on their arguments and the settings alone.

#include <gtest/gtest.h>

#include <array>
#include <tuple>

#include "CheckHost.hpp"
#include "Configuration.hpp"
#include "Fakes.hpp"
#include "LinkCommands.hpp"
#include "RegKeys.hpp"
#include "RemoteName.hpp"
#include "ResolveExtension.hpp"
#include "StartViewer.hpp"

namespace quorbin::fakes {
namespace {

using namespace std::string_literals;
using Pair = std::pair<std::string, std::string>;

TEST(RemoteName, ReducesNotationsAndDerivesExtensions) {
  const Pair names[] = {
      {"a.t  ", "a.t"},           {"/BS2/h/a.t", "h/a.t"},  {"/BS2/a.t", "a.t"},
      {"/h/me/a.t", "a.t"},       {"/BS2//h/a.t", "a.t"},   {"*POSIX(/h/a.t)", "a.t"},
      {"/BS2/*POSIX(/h/a)", "a"}, {"*POSIX(a.t  )", "a.t"}, {"*POSIXa)", "*POSIXa"},
      {"/bs2/a b.T", "a b.T"},    {"/home/me/", ""},        {"", ""},
  };
  for (const auto& [value, name] : names) EXPECT_EQ(ReduceName(value), name) << value;
  const Pair extensions[] = {{"a b.TXT", ".TXT"}, {"page.html", "html"}, {"ab", "ab"}, {"", ""}};
  for (const auto& [name, ext] : extensions) EXPECT_EQ(DeriveExt(name), ext) << name;
  for (const std::string& name : {""s, "../a.txt"s, "a\0.txt"s, "12\" disk.txt"s, "a.txt\\"s}) {
    EXPECT_FALSE(IsUsableName(name)) << name;
  }
  EXPECT_TRUE(IsUsableName("..a\\b 'c'.txt"));
}

TEST(Configuration, NumberFromText) {
  const std::pair<std::string, int> rows[] = {
      {"0", 0},      {" 5 0\t0", 500}, {"-3", -3},         {"+7", 7},       {"2.5", 2},
      {"3.5", 4},    {"1.5", 2},       {"1e3x", 1000},     {"1 e 3", 1000}, {".5e1", 5},
      {"12abc", 12}, {"abc", 0},       {"  ", 0},          {"-", 0},        {"--1", 0},
      {"&h10", 16},  {"&HfFg", 255},   {"&o17", 15},       {"&O18", 1},     {"&x1", 0},
      {"inf", 0},    {"nan", 0},       {"32767", 32767},   {"32768", 0},    {"-32768", -32768},
      {"1e999", 0},  {"&hFFFFF", 0},   {"32767.4", 32767}, {"\n4", 4},      {"-32769", 0},
  };
  for (const auto& [text, n] : rows) EXPECT_EQ(WholeNumberFromText<std::int16_t>(text), n) << text;
}

TEST(Configuration, DirectoriesFromTheEnvironment) {
  World world;
  world.computer.environment = {{"TMP", "/a/"}, {"TEMP", "/b"}, {"SystemRoot", "/s"}};
  for (const auto& [variable, tempDir] : {Pair{"TMP", "/a/"}, {"TEMP", "/b"}, {"", "/opt/q"}}) {
    SetDirectories(world.form);
    EXPECT_EQ(world.form.Session.TempDir, tempDir);
    EXPECT_EQ(world.form.Session.SystemRootDir, "/s");
    world.computer.environment.erase(variable);
  }
}

TEST(RegKeys, TypesAndSizes) {
  const std::tuple<RegType, std::string, std::string> rows[] = {
      {RegType::REG_SZ, "a\0b\0"s, "a"},
      {RegType::REG_EXPAND_SZ, "%SystemRoot%\\x", "%SystemRoot%\\x"},
      {RegType::REG_DWORD, "\xDE\x24\0\0"s, "9438"},
      {RegType::REG_DWORD, "\xFF\xFF\xFF\xFF", "4294967295"},
      {RegType::REG_BINARY, "abc", ""},
      {RegType::REG_SZ, std::string(1023, 'x') + '\0', std::string(1023, 'x')},
      {RegType::REG_SZ, std::string(1024, 'x') + '\0', ""},
  };
  World world;
  for (const auto& [type, bytes, text] : rows) {
    world.registry.values["k|v"] = {type, bytes};
    EXPECT_EQ(ReadRegValue(world.form, HKEY_CLASSES_ROOT, "k", "v"), text);
  }
}

TEST(StartViewer, CommandLines) {
  const auto line = [](auto command, auto prefix, auto suffix, auto ext) {
    return AssembleLine({command, ext, prefix, suffix, "/f", "/sys"});
  };
  const Pair rows[] = {
      {"\"v\" \"%1\" /r", "\"v\" \"/f\" /r"},   {"view %1 /r", "view /f /r"},
      {"x%SystemRoot% %1", "x%SystemRoot% /f"}, {"view %1 %1", "view /f %1"},
      {"%systemroot% %1", "%systemroot% /f"},   {"%1 view", "/f view"},
      {"%SystemRoot%/v %1", "/sys/v /f"},       {"\"%1\"", "\"/f\""},
  };
  for (const auto& [command, expected] : rows) EXPECT_EQ(line(command, "", "", "."), expected);
  EXPECT_EQ(line("view %1", "-a ", "", ".log"), "view -a /f");
  EXPECT_EQ(line("view %1", "", "-z", ".log"), "view /f -z");
  EXPECT_EQ(line("view /q", "-a ", "-z", ".log"), "view /q -a /f-z");
  EXPECT_EQ(line("\"view\" /n \"%1\"", "-a ", "-z", ".log"), "\"view\" /n -a \"/f\"-z");
  EXPECT_EQ(line("\"%1\" %*", "", "", ".exe"), "/f");
  EXPECT_EQ(line("\"%1\" %*", "-a ", "-z", ".EXE"), "-a /f-z");
  EXPECT_EQ(line("\"%1\" %*", "", "", ".Exe"), "\"/f\" %*");
  EXPECT_EQ(Unescape(R"(a\\"b\c\\)"), R"(a"b\c\\)");
}

// The name of the peer is localhost.
TEST(CheckHost, DefaultsAndEntries) {
  const std::tuple<std::string, bool, std::string> rows[] = {
      // What the default is
      {"Default= *deny ", false, "Default=*deny"},
      {"host_allow=1\nDefault=*allow", true, "Default=*allow"},
      {"host_allow=1\nDefault=*Allow", false, "Default=*deny"},
      {"host_allow=1", false, "Default=*deny"},
      {"host_allow=2\nDefault=deny", true, "Default=*allow"},
      {"", true, "Default=*allow"},
      // Entries under *allow
      {"other=*deny", true, "Default=*allow"},
      {"localhost=*deny", false, "localhost=*deny"},
      {"LocalHost=", true, "localhost="},
      {"127.0.0.1=*allow\nother=*deny", true, "Default=*allow"},
      {"127.0.0.1=*allow\nlocalhost=*deny", false, "localhost=*deny"},
      {"127.0.0.1=*allow\nlocalhost=*Deny", true, "localhost=*Deny"},
      {"127.0.0.1=*deny\nlocalhost=*allow", false, "127.0.0.1=*deny"},
      {"127.0.0.1=\nlocalhost=*deny", true, "127.0.0.1="},
      // Entries under *deny
      {"Default=*deny\nother=*allow", false, "Default=*deny"},
      {"Default=*deny\nlocalhost=*deny", false, "Default=*deny"},
      {"Default=*deny\nlocalhost=", true, "localhost="},
      {"Default=*deny\n127.0.0.1=*deny", false, "Default=*deny"},
      {"Default=*deny\n127.0.0.1=*deny\nlocalhost=*allow", true, "localhost=*allow"},
      {"Default=*deny\n127.0.0.1=*Deny", true, "127.0.0.1=*Deny"},
      // Link mode
      {"127.0.0.1=*allow\n[Global]\nControl=1", false, "link table"},
      {"host_allow=3\nDefault=*allow", false, "link table"},
  };
  for (const auto& [hosts, allowed, by] : rows) {
    World world("[Hosts]\n" + hosts + "\n");
    world.resolver.name = "localhost";
    const HostDecision decision = CheckHost(world.form, "127.0.0.1");
    EXPECT_EQ(decision.Allowed, allowed) << hosts;
    EXPECT_EQ(decision.By, by) << hosts;
  }
}

// A lookup takes time, and shows the name service who connects.
TEST(CheckHost, LooksNoNameUpThatCannotMatter) {
  const std::pair<std::string, bool> rows[] = {
      {"Default=*deny\nHOST_ALLOW=1\n10.0.0.8=*allow\nfd00::7=*allow\n*local=*allow", false},
      {"Default=*deny\npca=*allow", true},
      {"Default=*deny\npca=*allow\n10.0.0.7=*allow", false},
  };
  for (const auto& [hosts, looked] : rows) {
    World world("[Hosts]\n" + hosts + "\n");
    CheckHost(world.form, "10.0.0.7");
    EXPECT_EQ(world.Effects().find("Resolve") != std::string::npos, looked) << hosts;
  }
}

TEST(ResolveExtension, DefaultsAndEntries) {
  const std::array<std::string, 4> rows[] = {
      // settings, extension, command, what is shown instead
      {"Default=*deny", ".reg", "", "extension denied"},
      {"ext_allow=1\nDefault=*reg", ".reg", "known", ""},
      {"ext_allow=1\nDefault=*allow", ".reg", "known", ""},
      {"ext_allow=1\nDefault=*Reg", ".reg", "", "extension denied"},
      {"ext_allow=2\nDefault=deny", ".reg", "known", ""},
      {"eg=cat", "reg", "", "wrong extension"},
      {"", "", "", "wrong extension"},
      {"exe=*deny", ".EXE", "", "extension denied"},
      {"", ".EXE", "\"%1\" %*", ""},
      {"", ".exe", "", "wrong extension"},
      {"", ".lame", "", "wrong extension"},
      {"Default=*deny\nreg=*reg", ".reg", "known", ""},
      {"txt=view \"%1\" first", ".TXT", "view \"%1\" first", ""},
      {"txt=*allow", ".txt", "*allow", ""},
  };
  for (const auto& [settings, ext, command, shown] : rows) {
    SCOPED_TRACE(settings + " " + ext);
    World world("[Extensions]\n" + settings + "\n");
    world.registry.values[".reg|"] = {RegType::REG_SZ, "class"};
    world.registry.values[".lame|"] = {RegType::REG_SZ, "lame"};
    world.registry.values["class\\shell\\open\\command|"] = {RegType::REG_SZ, "known"};
    std::string found;
    EXPECT_EQ(ResolveExtension(world.form, ext, found), !command.empty());
    EXPECT_EQ(found, command);
    EXPECT_EQ(world.Text(Field::resu), shown);
  }
}

TEST(LinkExecute, CommandTable) {
  World world;
  // A plus sign if the command was accepted, else a minus sign, and what stopsrv holds then.
  const auto run = [&](const std::string& command) {
    std::int16_t Cancel = 1;
    LinkExecute(world.form, command, Cancel);
    return (Cancel == 0 ? "+" : "-") + world.form.stopsrv;
  };
  EXPECT_EQ(run("stopsrv"), "-OK");  // ControlMode is 0
  world.form.ControlMode = 1;
  world.form.HostMode = HostModeLink;
  for (const char* c : {"dis 10.0.0.7", "con", "dis", "stop", ""}) EXPECT_EQ(run(c), "-OK") << c;
  const Pair rows[] = {
      {"con 10.0.0.7", "+con"},  {"CON PcA", "+con"},      {"dis pca", "-dis"},
      {"con  10.0.0.8", "+con"}, {"dis 10.0.0.8", "-dis"}, {"con ", "+con"},
      {"con 10.0.0.7", "+con"},  {"DIS 10.0.0.7", "+dis"}, {"nothing", "-dis"},
  };
  for (const auto& [command, answer] : rows) EXPECT_EQ(run(command), answer) << command;
  EXPECT_TRUE(CheckHost(world.form, "10.0.0.7").Allowed);  // its second entry
  EXPECT_TRUE(CheckHost(world.form, "10.0.0.8").Allowed);  // blanks around an entry don't count
  EXPECT_FALSE(CheckHost(world.form, "pca").Allowed);
  EXPECT_FALSE(CheckHost(world.form, "").Allowed);  // neither a free slot nor the entry of a blank

  for (int free = 29; free > 0; --free) EXPECT_EQ(run("con x"), "+con");
  EXPECT_EQ(run("con y"), "-con");  // the 34th entry
  EXPECT_EQ(run("dis PcA"), "+dis");
  EXPECT_EQ(run("con y"), "+con");
  EXPECT_EQ(world.form.LinkHosts[1], " y");  // the slot that was freed, not the end

  EXPECT_EQ(world.Effects().find("Resolve"), std::string::npos);  // the table has no names
  EXPECT_EQ(run("StopSrv now"), "+quorbin stopped");
  EXPECT_EQ(world.Effects(), "LinkMode 0; CloseMain; ");

  const std::vector<JournalEntry>& entries = world.audit.entries;
  EXPECT_EQ(entries.front().Message, "link execute stopsrv: refused");
  EXPECT_EQ(entries.back().Message, "link execute StopSrv now: accepted");
}

}  // namespace
}  // namespace quorbin::fakes
