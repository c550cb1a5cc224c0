// The decisions that depend on their arguments and the settings alone.

#include <gtest/gtest.h>

#include <tuple>

#include "CheckHost.hpp"
#include "Configuration.hpp"
#include "Fakes.hpp"
#include "LinkCommands.hpp"
#include "RegKeys.hpp"
#include "RemoteName.hpp"
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
