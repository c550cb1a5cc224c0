// The decisions that depend on their arguments and the settings alone.

#include <gtest/gtest.h>

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
using Strings = std::vector<std::string>;

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
}

TEST(Configuration, NumberFromText) {
  const std::pair<std::string, int> rows[] = {
      {"0", 0},      {" 5 0\t0", 500}, {"-3", -3},         {"+7", 7},       {"2.5", 2},
      {"3.5", 4},    {"1.5", 2},       {"1e3x", 1000},     {"1 e 3", 1000}, {".5e1", 5},
      {"12abc", 12}, {"abc", 0},       {"  ", 0},          {"-", 0},        {"--1", 0},
      {"&h10", 16},  {"&HfFg", 255},   {"&o17", 15},       {"&O18", 1},     {"&x1", 0},
      {"inf", 0},    {"nan", 0},       {"32767", 32767},   {"32768", 0},    {"-32768", -32768},
      {"1e999", 0},  {"&hFFFFF", 0},   {"32767.4", 32767}, {"\n4", 4},
  };
  for (const auto& [text, n] : rows) EXPECT_EQ(WholeNumberFromText<std::int16_t>(text), n) << text;
}

TEST(Configuration, StartUpValues) {
  // Settings, registered port; Control, Icon, ext_allow, host_allow, port and prefix of files.
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {"", "", "0 0 0 0 9438 /f$~."},
      {"[Global]\nControl=1\nPrefix=abc\n[Extensions]\next_allow=1", "7000", "1 0 1 3 7000 /abc."},
      {"[global]\nCONTROL=2\nIcon=2.5\nPort=50000\nPrefix=\\abc.", "7000", "2 2 0 0 50000 /abc."},
      {"[Global]\nPort=00000000000000000001\nPrefix=", "abc", "0 0 0 0 0 /."},
      {"[Global]\nPort=2147483648\nIcon=-32769\n[hosts]\nhost_allow=1", "", "0 0 0 1 9438 /f$~."},
  };
  for (const auto& [ini, registered, values] : rows) {
    World world(ini);
    const Form1& form = world.form;
    if (!registered.empty()) world.registry.values["Quorbin|Port"].Bytes = registered;
    Load(world.form);
    std::ostringstream got;
    got << form.ControlMode << ' ' << form.IconMode << ' ' << form.ExtMode << ' ' << form.HostMode
        << ' ' << world.winsock.port << ' ' << form.Session.NamePrefix;
    EXPECT_EQ(got.str(), values) << ini;
  }
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

// Lines of the section Hosts that lead to a decision on the peer 10.0.0.7, whose name is "pca".
TEST(CheckHost, ProfileMode) {
  const std::pair<std::string, Strings> rows[] = {
      {"admitted by name",
       {"PCA=other", "Default=*deny\nPCA=", "Default=*deny\n10.0.0.7=*deny\nPCA=*allow",
        "host_allow=1\nDefault= *allow \nother.host=*deny", "1.x=*deny"}},
      {"refused by name",
       {"PCA=*deny", "10.0.0.7=*allow\nPCA=*deny", "Default=*deny\n10.0.0.7=*deny\nPCA=*deny",
        "host_allow=1\nother.host=*allow"}},
      // The address decides, or no entry could be one of a name.
      {"admitted",
       {"10.0.0.7=\nPCA=*deny", "10.0.0.7=*Deny", "Default=*deny\n10.0.0.7=*allow\nPCA=*deny",
        "Default=*deny\n10.0.0.7=", "", "host_allow=2\nDefault=*Deny",
        "host_allow=1\nDefault= *allow ",
        "10.0.0.8=*deny\nfd00::7=*deny\n127.1=*deny\n*LOCAL=*deny"}},
      {"refused",
       {"10.0.0.7=*deny\nPCA=*allow", "host_allow=1", "host_allow=1\nDefault=*ALLOW",
        "Default=*deny", "HOST_ALLOW=1\nDEFAULT=*deny\n127.0.0.1=*allow\n::1=*allow",
        "Default=*deny\n=*allow\npca\n[Other]\npca=*allow", "Default=*deny\n10.0.0.7=*deny",
        "host_allow=1\nDefault=*allow" + std::string(194, 'x')}},
  };
  for (const auto& [decision, cases] : rows) {
    for (const std::string& hosts : cases) {
      // With the entry of another host the name is looked up in any case.
      for (const std::string& other : Strings{"", "\n[Hosts]\nunrelated=*allow"}) {
        World world("[Hosts]\n" + hosts + other);
        world.resolver.name = "pca";
        const std::string admitted =
            CheckHost(world.form, "10.0.0.7").Allowed ? "admitted" : "refused";
        const std::string byName = world.journal.empty() ? "" : " by name";
        if (other.empty()) {
          EXPECT_EQ(admitted + byName, decision) << hosts;
        } else {
          EXPECT_EQ(decision.substr(0, admitted.size()), admitted) << hosts;
        }
      }
    }
  }
}

// Extensions, a bar, and lines of the section Extensions that lead to a refusal or a command.
TEST(ResolveExtension, DecisionTable) {
  const std::pair<std::string, Strings> rows[] = {
      {"extension denied: ",
       {".txt|ext_allow=1", ".txt|Default=*deny", ".txt|txt=*deny", ".EXE|exe=*deny",
        ".|Default=*deny", ".default|Default=*deny"}},
      {"wrong extension: ", {".TXT|", ".unk|", ".cls|", ".exe|"}},
      {"wrong extension: before", {"txt|", "|"}},
      {": reg %1",
       {".txt|", ".txt|ext_allow=1\nDefault=*allow", ".txt|ext_allow=1\ntxt=*reg",
        ".txt|Default=*deny and more than 19", ".txt|Default=*Deny"}},
      {": \"%1\" %*", {".EXE|"}},
      {": view %1", {".TXT|txt=view %1"}},
      {": ", {".txt|txt="}},
      {": *allow", {".txt|txt=*allow"}},
      {": " + std::string(199, 'v'), {".txt|txt=" + std::string(250, 'v')}},
  };
  for (const auto& [decision, cases] : rows) {
    for (const std::string& input : cases) {
      const std::size_t bar = input.find('|');
      World world("[Extensions]\n" + input.substr(bar + 1));
      world.registry.values[".txt|"].Bytes = "txtfile";
      world.registry.values["txtfile\\shell\\open\\command|"].Bytes = "reg %1";
      world.registry.values[".cls|"].Bytes = "noCommand";
      std::string viewer = "before";
      const bool allowed = ResolveExtension(world.form, input.substr(0, bar), viewer);
      const std::string resu = world.Text(Field::resu);
      EXPECT_EQ(resu + ": " + viewer, decision) << input;
      EXPECT_EQ(world.Effects(), allowed ? "" : "resu=" + resu + "; kdo=; aktion=EXT; ");
    }
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
