// The decisions that look at nothing but their arguments and the settings.

#include <gtest/gtest.h>

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

TEST(RemoteName, ReducesNotationsAndDerivesExtensions) {
  const struct {
    std::string Value, Name, Ext;
  } rows[] = {
      {"report.txt", "report.txt", ".txt"},
      {"/BS2/report.txt", "report.txt", ".txt"},
      {"/home/me/report.txt", "report.txt", ".txt"},
      {"/BS2//home/me/report.txt", "report.txt", ".txt"},
      {"/BS2/home/report.txt", "home/report.txt", ".txt"},
      {"*POSIX(/home/me/report.txt)", "report.txt", ".txt"},
      {"/BS2/*POSIX(/home/me/report.txt)", "report.txt", ".txt"},
      {"*POSIX(report.txt  )", "report.txt", ".txt"},
      {"*POSIXreport.txt)", "*POSIXreport.txt", ".txt"},
      {"/bs2/a b.TXT", "a b.TXT", ".TXT"},
      {"/home/me/", "", ""},
      {"page.html", "page.html", "html"},
      {"ab", "ab", "ab"},
      {"", "", ""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ReduceName(row.Value), row.Name) << row.Value;
    EXPECT_EQ(DeriveExt(ReduceName(row.Value)), row.Ext) << row.Value;
  }
}

TEST(Configuration, NumberFromText) {
  const std::pair<std::string, int> rows[] = {{"0", 0},
                                              {" 5 0\t0 0", 5000},
                                              {"-3", -3},
                                              {"+7", 7},
                                              {"2.5", 2},
                                              {"3.5", 4},
                                              {"1.5", 2},
                                              {"1e3x", 1000},
                                              {"1 e 3", 1000},
                                              {".5e1", 5},
                                              {"12abc", 12},
                                              {"abc", 0},
                                              {"", 0},
                                              {"-", 0},
                                              {"--1", 0},
                                              {"&h10", 16},
                                              {"&HfFg", 255},
                                              {"&o17", 15},
                                              {"&O18", 1},
                                              {"&x1", 0},
                                              {"inf", 0},
                                              {"nan", 0},
                                              {"32767", 32767},
                                              {"32768", 0},
                                              {"-32768", -32768},
                                              {"1e999", 0},
                                              {"&hFFFFFFFFFFFF", 0},
                                              {"32767.4", 32767},
                                              {"\n4", 4}};
  for (const auto& [text, number] : rows) {
    EXPECT_EQ(WholeNumberFromText<std::int16_t>(text), number) << text;
  }
  EXPECT_EQ(WholeNumberFromText<std::int32_t>("2147483647"), 2147483647);
  EXPECT_EQ(WholeNumberFromText<std::int32_t>("2147483648"), 0);
}

TEST(Configuration, StartUpValues) {
  const struct {
    std::string Ini, RegistryPort;
    int Control, Icon, Ext, Host, Port;
    std::string Prefix;
  } rows[] = {
      {"", "", 0, 0, 0, 0, 9438, "/f$~."},
      {"[Global]\nControl=1\nPrefix=abc\n[Hosts]\nhost_allow=0", "7000", 1, 0, 0, 3, 7000, "/abc."},
      {"[global]\nCONTROL=2\nIcon=2.5\nPort=5000\nPrefix=\\abc.\n[hosts]\nhost_allow=1", "7000", 2,
       2, 0, 1, 5000, "/abc."},
      {"[Global]\nPort=x\nPrefix=\n[Extensions]\next_allow=1", "abc", 0, 0, 1, 0, 0, "/."},
      {"[Global]\nIcon=-99999\nPort=" + std::string(19, '0') + "1\n[Hosts]\nhost_allow=3", "", 0, 0,
       0, 3, 9438, "/f$~."},
  };
  for (const auto& row : rows) {
    World world;
    world.profile.ini = row.Ini;
    if (!row.RegistryPort.empty()) world.registry.Set("Quorbin|Port", row.RegistryPort);
    ReadModes(world.form);
    SetListeningPort(world.form);
    SetNamePrefix(world.form);
    SCOPED_TRACE(row.Ini);
    EXPECT_EQ(world.form.ControlMode, row.Control);
    EXPECT_EQ(world.form.IconMode, row.Icon);
    EXPECT_EQ(world.form.ExtMode, row.Ext);
    EXPECT_EQ(world.form.HostMode, row.Host);
    EXPECT_EQ(world.winsock.port, row.Port);
    EXPECT_EQ(world.form.Session.NamePrefix, row.Prefix);
  }
}

TEST(Configuration, DirectoriesFromTheEnvironment) {
  World world;
  const auto tempDir = [&](std::map<std::string, std::string> environment) {
    world.computer.environment = std::move(environment);
    SetDirectories(world.form);
    return world.form.Session.TempDir;
  };
  EXPECT_EQ(tempDir({{"TMP", "/a/"}, {"TEMP", "/b"}, {"SystemRoot", "/s"}}), "/a/");
  EXPECT_EQ(world.form.Session.SystemRootDir, "/s");
  EXPECT_EQ(tempDir({{"TEMP", "/b"}}), "/b");
  EXPECT_EQ(tempDir({}), "/opt/q");
}

TEST(RegKeys, TypesAndSizes) {
  const struct {
    RegType Type;
    std::string Bytes, Text;
  } rows[] = {
      {RegType::REG_SZ, std::string("a\0b\0", 4), "a"},
      {RegType::REG_EXPAND_SZ, "%SystemRoot%\\x", "%SystemRoot%\\x"},
      {RegType::REG_DWORD, "\xDE\x24\0\0"s, "9438"},
      {RegType::REG_DWORD, "\xFF\xFF\xFF\xFF", "4294967295"},
      {RegType::REG_BINARY, "abc", ""},
      {RegType::REG_SZ, std::string(1023, 'x') + '\0', std::string(1023, 'x')},
      {RegType::REG_SZ, std::string(1024, 'x') + '\0', ""},
  };
  World world;
  for (const auto& row : rows) {
    world.registry.values["k|v"] = {row.Type, row.Bytes};
    EXPECT_EQ(ReadRegValue(world.form, HKEY_CLASSES_ROOT, "k", "v"), row.Text);
  }
  EXPECT_EQ(ReadRegValue(world.form, HKEY_CLASSES_ROOT, "k", "w"), "");
}

TEST(CheckHost, ProfileMode) {
  // Peer 10.0.0.7, name "pca". Entries: "-" is none.
  const struct {
    int HostMode;
    std::string Default, Address, Name;
    bool Admitted, Resolved;
  } rows[] = {
      {0, "-", "-", "-", true, true},
      {1, "-", "-", "-", false, true},
      {2, "*Deny", "-", "-", true, true},
      {1, "*ALLOW", "-", "-", false, true},
      {1, " *allow ", "-", "-", true, true},
      {0, "*deny", "-", "-", false, true},
      {0, "-", "-", "*deny", false, true},
      {0, "-", "-", "other", true, true},
      {0, "-", "*allow", "*deny", false, true},
      {0, "-", "*deny", "*allow", false, false},
      {0, "-", "", "*deny", true, false},
      {0, "-", "*Deny", "-", true, false},
      {0, "*deny", "-", "", true, true},
      {0, "*deny", "*deny", "*allow", true, true},
      {0, "*deny", "*allow", "*deny", true, false},
      {0, "*deny", "", "-", true, false},
      {0, "*deny", "*deny", "*deny", false, true},
      {1, std::string(199, ' ') + "*allow", "-", "-", true, true},
      {1, "*allow" + std::string(194, 'x'), "-", "-", false, true},
  };
  for (const auto& row : rows) {
    World world;
    std::string& ini = world.profile.ini = "[Hosts]\nhost_allow=0\n";
    if (row.Default != "-") ini += "Default=" + row.Default + "\n";
    if (row.Address != "-") ini += "10.0.0.7=" + row.Address + "\n";
    if (row.Name != "-") ini += "PCA=" + row.Name + "\n";
    world.form.HostMode = static_cast<std::int16_t>(row.HostMode);
    world.resolver.name = "pca";
    SCOPED_TRACE(ini);
    EXPECT_EQ(CheckHost(world.form, "10.0.0.7"), row.Admitted);
    EXPECT_EQ(!world.journal.empty(), row.Resolved);
  }
}

TEST(CheckHost, UnresolvedNameFindsNoEntry) {
  World world("[Hosts]\nDefault=*deny\n=*allow\n");
  EXPECT_FALSE(CheckHost(world.form, "10.0.0.7"));
}

TEST(ResolveExtension, DecisionTable) {
  // Settings are the lines of the section Extensions.
  const struct {
    std::string Ext, Settings;
    bool Allowed;
    std::string ViewerCmd, Resu;
  } rows[] = {
      {"txt", "", false, "before", "wrong extension"},
      {"", "", false, "before", "wrong extension"},
      {".txt", "", true, "reg %1", "-"},
      {".txt", "ext_allow=1", false, "", "extension denied"},
      {".txt", "ext_allow=1\nDefault=*allow", true, "reg %1", "-"},
      {".txt", "ext_allow=1\ntxt=*reg", true, "reg %1", "-"},
      {".txt", "Default=*deny", false, "", "extension denied"},
      {".txt", "Default=*deny and more than 19", true, "reg %1", "-"},
      {".txt", "Default=*Deny", true, "reg %1", "-"},
      {".txt", "txt=*deny", false, "", "extension denied"},
      {".TXT", "txt=view %1", true, "view %1", "-"},
      {".TXT", "", false, "", "wrong extension"},
      {".txt", "txt=", true, "", "-"},
      {".txt", "txt=*allow", true, "*allow", "-"},
      {".txt", "txt=" + std::string(250, 'v'), true, std::string(199, 'v'), "-"},
      {".unk", "", false, "", "wrong extension"},
      {".cls", "", false, "", "wrong extension"},
      {".EXE", "", true, "\"%1\" %*", "-"},
      {".exe", "", false, "", "wrong extension"},
      {".EXE", "exe=*deny", false, "", "extension denied"},
      {".", "Default=*deny", false, "", "extension denied"},
      {".default", "Default=*deny", false, "", "extension denied"},
  };
  for (const auto& row : rows) {
    World world("[Extensions]\n" + row.Settings);
    world.registry.Set(".txt|", "txtfile");
    world.registry.Set("txtfile\\shell\\open\\command|", "reg %1");
    world.registry.Set(".cls|", "noCommand");
    std::string viewer = "before";
    SCOPED_TRACE(row.Ext + " " + row.Settings);
    EXPECT_EQ(ResolveExtension(world.form, row.Ext, viewer), row.Allowed);
    EXPECT_EQ(viewer, row.ViewerCmd);
    const Journal refusal = {"resu=" + row.Resu, "kdo=", "aktion=EXT"};
    EXPECT_EQ(world.journal, row.Resu == "-" ? Journal() : refusal);
  }
}

TEST(StartViewer, CommandLines) {
  const struct {
    std::string ViewerCmd, FileName, KdoPrf, KdoExt, Ext, Line;
  } rows[] = {
      {"/bin/edit %1", "a.txt", "", "", ".txt", "/bin/edit /t/f$~.a.txt"},
      {"\"/b/edit\" /n \"%1\"", "a.doc", "", "", ".doc", "\"/b/edit\" /n \"/t/f$~.a.doc\""},
      {"\"/b/view\" \"%1\" /r", "a.log", "", "", ".log", "\"/b/view\" \"/t/f$~.a.log\" /r"},
      {"view %1 /r", "a.log", "", "", ".log", "view /t/f$~.a.log /r"},
      {"\"/b/edit\" /n \"%1\"", "a.doc", "/p ", "", ".doc", "\"/b/edit\" /n /p \"/t/f$~.a.doc\""},
      {"view %1", "a.log", "-a ", "", ".log", "view -a /t/f$~.a.log"},
      {"view %1", "a.log", "", "-z", ".log", "view /t/f$~.a.log -z"},
      {"view %1", "a.log", "-a ", "-z", ".log", "view -a /t/f$~.a.log-z"},
      {"view %1", "a.log", "-a ", " -z", ".log", "view -a /t/f$~.a.log -z"},
      {"view", "a.log", "", "", ".log", "view /t/f$~.a.log"},
      {"view /q", "a.log", "-a ", "-z", ".log", "view /q -a /t/f$~.a.log-z"},
      {"\"%1\" %*", "setup.exe", "", "", ".exe", "/t/f$~.setup.exe"},
      {"\"%1\" %*", "SETUP.EXE", "-a ", "-z", ".EXE", "-a /t/f$~.SETUP.EXE-z"},
      {"\"%1\" %*", "Setup.Exe", "", "", ".Exe", "\"/t/f$~.Setup.Exe\" %*"},
      {"%SystemRoot%/edit %1", "a.txt", "", "", ".txt", "/sys/edit /t/f$~.a.txt"},
      {"\"%SystemRoot%/edit\" \"%1\"", "a", "", "", "", "\"%SystemRoot%/edit\" \"/t/f$~.a\""},
      {"%systemroot%/edit %1", "a", "", "", "", "%systemroot%/edit /t/f$~.a"},
      {"view %1 %1", "a.log", "", "", ".log", "view /t/f$~.a.log %1"},
      {"%1 x", "a.log", "", "", ".log", "/t/f$~.a.log x"},
      {"\"%1\"", "a.log", "", "", ".log", "\"/t/f$~.a.log\""},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(AssembleLine({row.ViewerCmd, row.Ext, row.KdoPrf, row.KdoExt,
                            "/t/f$~." + row.FileName, "/sys"}),
              row.Line);
  }
  EXPECT_EQ(Unescape(R"(/t \"My Title\")"), R"(/t "My Title")");
  EXPECT_EQ(Unescape(R"(a\\"b\c\\)"), R"(a"b\c\\)");
}

TEST(LinkExecute, CommandTable) {
  World world;
  const auto run = [&](const std::string& command) {
    std::int16_t Cancel = 1;
    LinkExecute(world.form, command, Cancel);
    return (Cancel == 0 ? "accepted " : "refused ") + world.window.stopsrv;
  };
  EXPECT_EQ(run("stopsrv"), "refused OK");  // ControlMode is 0
  EXPECT_FALSE(LinkNotify(world.form, "stopsrv"));
  world.form.ControlMode = 1;
  world.form.HostMode = HostModeLink;
  EXPECT_FALSE(CheckHost(world.form, "10.0.0.7"));

  const std::pair<std::string, std::string> rows[] = {
      {"dis 10.0.0.7", "refused OK"},
      {"con", "refused OK"},
      {"dis", "refused OK"},
      {"stop", "refused OK"},
      {"", "refused OK"},
      {"con 10.0.0.7", "accepted con"},
      {"CON PcA", "accepted con"},
      {"dis pca", "refused dis"},
      {"con  10.0.0.8", "accepted con"},
      {"dis 10.0.0.8", "refused dis"},
      {"con ", "accepted con"},
      {"con 10.0.0.7", "accepted con"},
      {"DIS 10.0.0.7", "accepted dis"},
      {"nothing", "refused dis"},
  };
  for (const auto& [command, answer] : rows) EXPECT_EQ(run(command), answer) << command;
  EXPECT_TRUE(CheckHost(world.form, "10.0.0.7"));  // its second entry
  EXPECT_TRUE(CheckHost(world.form, "10.0.0.8"));  // blanks round an entry don't count
  EXPECT_FALSE(CheckHost(world.form, "pca"));
  EXPECT_TRUE(world.journal.end() == std::ranges::find(world.journal, "Resolve 10.0.0.7"));

  for (int free = 29; free > 0; --free) EXPECT_EQ(run("con x"), "accepted con");
  EXPECT_EQ(run("con y"), "refused con");  // the 34th entry
  EXPECT_EQ(run("dis PcA"), "accepted dis");
  EXPECT_EQ(run("con y"), "accepted con");
  EXPECT_EQ(world.form.LinkHosts[1], " y");  // the slot that was freed, not the end

  world.journal.clear();
  EXPECT_EQ(run("StopSrv now"), "accepted quorbin stopped");
  EXPECT_EQ(world.journal, (Journal{"stopsrv=quorbin stopped", "LinkMode 0", "CloseMain"}));
  EXPECT_EQ(LinkRequest(world.form, "stopsrv"), "quorbin stopped");
  EXPECT_FALSE(LinkRequest(world.form, "other"));
  EXPECT_TRUE(LinkNotify(world.form, "stopsrv"));
}

}  // namespace
}  // namespace quorbin::fakes
