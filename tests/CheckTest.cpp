// quorbin-check: its warnings on damaged settings, and its explanations compared with what the
// built service does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

using Strings = std::vector<std::string>;

using testing::HasSubstr;

// The checker's output on the settings of a service, in the environment of that service.
struct Check : Outcome {
  explicit Check(const Service& service, const std::string& arguments = {})
      : Outcome(RunShell(
            "export TMP=" + service.Path("tmp") + " XDG_CONFIG_HOME=" + service.Path("config") +
            " XDG_RUNTIME_DIR=" + service.Path("run") +
            " XDG_DATA_DIRS=/nowhere XDG_DATA_HOME=/nowhere; " QUORBIN_CHECK " --settings " +
            service.Path("quorbin.ini") + " " + arguments)) {}
  // The value of the fact or explanation, without its origin; "(absent)" if it is not there.
  std::string Value(const std::string& name) const {
    std::istringstream lines(Output);
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with(name + ": ")) continue;
      line.erase(0, name.size() + 2);
      return line.substr(0, line.rfind(" ("));
    }
    return "(absent)";
  }
};

// A service whose settings are the text alone; the registry has a free port for it.
struct PlainService : Service {
  explicit PlainService(const std::string& settings = {}) {
    fs::permissions(Home / "tmp", fs::perms::owner_all);
    WriteFile("config/quorbin/classes.reg",
              "REGEDIT4\n[HKEY_CLASSES_ROOT\\Quorbin]\n\"Port\"=\"" + std::to_string(Port) +
                  "\"\n"
                  "[HKEY_CLASSES_ROOT\\.reg]\n@=\"known\"\n"
                  "[HKEY_CLASSES_ROOT\\.lame]\n@=\"lame\"\n"
                  "[HKEY_CLASSES_ROOT\\known\\shell\\open\\command]\n@=\"" +
                  Path("view") + " \\\"%1\\\"\"\n");
    Replace(settings);
  }
  void Replace(const std::string& settings) const {
    fs::remove(Home / "quorbin.ini");
    WriteFile("quorbin.ini", settings);
    fs::permissions(Home / "quorbin.ini", fs::perms::owner_read | fs::perms::owner_write);
  }
};

struct Damaged {
  std::string Settings;
  Strings Warnings;  // each with its line number in front where it has one
};

// A file without section Hosts gets one that is in order, so that the rows need none.
const std::vector<Damaged> DamagedFiles = {
    // In order
    {"", {}},
    {"; comment\n# comment\n\n[Global]\nIcon=2\n", {}},
    {"[GLOBAL]\r\ncontrol = 2 \r\n", {}},
    // Lines, sections and keys that the service ignores
    {"Control=1\n", {"1: 'Control=1' is ignored: no key, no '=' or no section"}},
    {"[Global]\nControl\n", {"2: 'Control' is ignored: no key, no '=' or no section"}},
    {"[Global]\n=1\n", {"2: '=1' is ignored: no key, no '=' or no section"}},
    {"[Hots]\n10.0.0.7=*deny\n", {"1: unknown section 'Hots': its lines are ignored"}},
    {"[::1]=*allow\n", {"1: unknown section '::1': its lines are ignored"}},
    {"[Global]\n[Global]\nIcon=2\n", {"2: repeated section 'Global': counts as one with line 1"}},
    {"[Global]\nProt=80\n", {"2: unknown key 'Prot' of Global: it is ignored"}},
    {"[Global]\nDefault=*deny\n", {"2: unknown key 'Default' of Global: it is ignored"}},
    {"[Global]\nIcon=1\nICON=2\n", {"3: repeated key 'ICON': line 2 counts"}},
    // Numbers
    {"[Global]\nControl=yes\n", {"2: Control: 'yes' is no number: counts as 0"}},
    {"[Global]\nControl=\n", {"2: Control: '' is no number: counts as 0"}},
    {"[Global]\nControl=2 ; open\n", {"2: Control: '2 ; open' counts as 2"}},
    {"[Global]\nIcon=2.5\n", {"2: Icon: '2.5' counts as 2"}},
    {"[Global]\nIcon=&h2\n", {"2: Icon: '&h2' counts as 2"}},
    {"[Global]\nIcon=32768\n", {"2: Icon: '32768' is too large for its field: counts as 0"}},
    {"[Global]\nIcon=00000000000000000002\n", {"2: Icon: the value is cut after 19 bytes"}},
    {"[Extensions]\next_allow=one\n", {"2: ext_allow: 'one' is no number: counts as 0"}},
    {"[Hosts]\nhost_allow=1x\n", {"2: host_allow: '1x' counts as 1"}},
    // The port and the prefix
    {"[Global]\nPort=80\n", {"2: port 80 is below 1024: an ordinary user may not listen on it"}},
    {"[Global]\nPort=65536\n", {"2: port 65536 is none: the service ends at its start"}},
    {"[Global]\nPort=-1\n", {"2: port -1 is none: the service ends at its start"}},
    {"[Global]\nPrefix=\n",
     {"2: Prefix is empty: every hidden file in the directory of the received files is deleted"}},
    {"[Global]\nPrefix=\\.\n",
     {"2: Prefix is empty: every hidden file in the directory of the received files is deleted"}},
    {"[Global]\nPrefix=" + std::string(200, 'p') + "\n",
     {"2: Prefix: the value is cut after 199 bytes"}},
    // Hosts
    {"[Hosts]\n10.0.0.7=*deny\n",
     {"section Hosts has neither Default nor host_allow: peers without an entry are let in"}},
    {"[Hosts]\nhost_allow=3\n", {"2: host_allow=3 while Control is 0: nobody is let in"}},
    {"[Hosts]\nhost_allow=1\nDefault=*Allow\n",
     {"3: Default: '*Allow' counts as absent, for it is not exactly *allow; *deny is in effect"}},
    {"[Hosts]\nDefault=*deny ; nobody\n",
     {"2: Default: '*deny ; nobody' counts as absent, for it is not exactly *deny; *allow is in "
      "effect"}},
    {"[Hosts]\nDefault=deny\n",
     {"2: Default: 'deny' counts as absent, for it is not exactly *deny; *allow is in effect"}},
    {"[Hosts]\nDefault=\n", {"2: Default: '' counts as absent; *allow is in effect"}},
    {"[Hosts]\nDefault=*allow\n10.0.0.7=*Deny\n",
     {"3: '10.0.0.7=*Deny' lets the peer in, for it is not exactly *deny"}},
    {"[Hosts]\nDefault=*allow\n10.0.0.7=*deny ; no\n",
     {"3: '10.0.0.7=*deny ; no' lets the peer in, for it is not exactly *deny"}},
    {"[Hosts]\nDefault=*allow\npca=deny\n",
     {"3: 'pca=deny' lets the peer in, for it is not exactly *deny"}},
    {"[Hosts]\nDefault=*deny\n10.0.0.7=no\n", {"3: '10.0.0.7=no' lets the peer in"}},
    {"[Hosts]\nDefault=*deny\n10.0.0.7=\n", {"3: '10.0.0.7=' lets the peer in"}},
    {"[Hosts]\nDefault=*deny\n10.0.0.7=*deny\npca=*deny\n",
     {"3: '10.0.0.7=*deny' is what Default says, so the name of the peer decides"}},
    {"[Hosts]\nDefault=*deny\n127.0.0.0/8=*allow\n10.0.*=*allow\n",
     {"3: '127.0.0.0/8' matches no peer: networks are not known, only single addresses",
      "4: '10.0.*' matches no peer: networks are not known, only single addresses"}},
    {"[Hosts]\nDefault=*deny\n10.0.0.=*allow\n10.0.0.300=*allow\n10.1=*allow\n",
     {"3: '10.0.0.' matches no peer: it is no whole address",
      "4: '10.0.0.300' matches no peer: it is no whole address",
      "5: '10.1' matches no peer: write 10.0.0.1"}},
    {"[Hosts]\nDefault=*deny\n010.0.0.7=*allow\n::ffff:10.0.0.7=*allow\nfd00:0::7=*allow\n",
     {"3: '010.0.0.7' matches no peer: write 8.0.0.7",
      "4: '::ffff:10.0.0.7' matches no peer: write 10.0.0.7",
      "5: 'fd00:0::7' matches no peer: write fd00::7"}},
    {"[Hosts]\nDefault=*deny\nfe80::1=*allow\n10.0.0.7:9438=*allow\npc.example.=*allow\n",
     {"3: 'fe80::1' matches no peer: a link-local peer is seen with its interface, as in "
      "fe80::1%eth0",
      "4: '10.0.0.7:9438' matches no peer: it is neither an address nor a name",
      "5: 'pc.example.' matches no peer: a name has no dot at its ends"}},
    {"[Hosts]\nDefault=*deny\n::1=*allow\nFD00::7=*allow\nfe80::1%eth0=*allow\nPC-A.lan=*allow\n",
     {}},
    // Extensions
    {"[Extensions]\nDefault=*deny and more\n",
     {"2: Default: '*deny and more' counts as absent, for it is not exactly *deny; *reg is in "
      "effect"}},
    {"[Extensions]\nDefault=cat \"%1\"\n",
     {"2: Default: 'cat \"%1\"' counts as absent; *reg is in effect"}},
    {"[Extensions]\n.txt=*deny\n",
     {"2: extension '.txt' has its dot: write it without, or it matches nothing"}},
    {"[Extensions]\nTXT=*deny\n",
     {"2: extension 'TXT' is in upper case: it counts for every letter case"}},
    {"[Extensions]\nexe=*Deny\n",
     {"2: 'exe=*Deny' is taken for a command, for it is not exactly *deny"}},
    {"[Extensions]\nexe=deny\n",
     {"2: 'exe=deny' is taken for a command, for it is not exactly *deny"}},
    {"[Extensions]\npdf=*allow\n",
     {"2: 'pdf=*allow' is taken for a command, for it is not exactly *reg"}},
    {"[Extensions]\npdf=*registered\n", {"2: 'pdf=*registered' is taken for a command"}},
    {"[Extensions]\npdf=\n", {"2: 'pdf=' has no command: such files are refused"}},
    {"[Extensions]\npdf=cat\n", {"2: the command of 'pdf' has no %1: the file is put at its end"}},
    {"[Extensions]\npdf=/nowhere/view \"%1\"\nlog=nosuchviewer \"%1\"\n",
     {"2: the command of 'pdf': no program '/nowhere/view' is found",
      "3: the command of 'log': no program 'nosuchviewer' is found"}},
    {"[Extensions]\npdf=cat \"%1\" " + std::string(200, 'x') + "\n",
     {"2: pdf: the value is cut after 199 bytes"}},
    {"[Extensions]\nexe=anything \"%1\"\ntxt=cat \"%1\"\nregx=regedit \"%1\"\n",
     {"4: the command of 'regx': no program 'regedit' is found"}},
    // Limits of peers; a wrong value ends the service
    {"[Global]\nListen=127.0.0.1\nParameters=*deny\n", {}},
    {"[Global]\nListen=*local\nPort=80\n[Hosts]\nDefault=*deny\n*local=*allow\n", {}},
    {"[Global]\nListen=localhost\n",
     {"2: Listen: 'localhost' is none of its values: the service ends at its start"}},
    {"[Global]\nListen=10.1\n",
     {"2: Listen: '10.1' is none of its values: the service ends at its start"}},
    {"[Global]\nParameters=*Deny\n",
     {"2: Parameters: '*Deny' is none of its values: the service ends at its start"}},
    // What could steer a terminal
    {"[Glo\x1B]2;x\x07"
     "bal]\n",
     {"1: unknown section 'Glo\\x1B': its lines are ignored"}},
    {"[Global]\n\xFF\x9B=\xE2\x80\xAE\n", {"2: unknown key '\\xFF\\x9B' of Global: it is ignored"}},
};

std::string WithHosts(const std::string& settings) {
  const bool complete = settings.find("[Hosts]") != std::string::npos;
  return complete ? settings : settings + "[Hosts]\nDefault=*deny\n";
}

// In words, and in JSON with the answer to each question.
TEST(QuorbinCheck, WarnsOfDamagedSettings) {
  const PlainService service;
  ASSERT_GE(DamagedFiles.size(), 40U);
  bool namesLines = false;
  for (const auto& [settings, warnings] : DamagedFiles) {
    service.Replace(WithHosts(settings));
    std::string expected;
    for (const std::string& warning : warnings) {
      const bool onLine = warning.front() >= '0' && warning.front() <= '9';
      expected += "warning: " + (onLine ? service.Path("quorbin.ini") + ":" : "") + warning + "\n";
    }
    const Check outcome(service, "--quiet");
    EXPECT_EQ(outcome.Output, expected) << settings;
    EXPECT_EQ(outcome.Status, warnings.empty() ? 0 : 1) << settings;
    for (const std::string question : {"", "--ext .txt", "--host 10.0.0.7 --name x", "--quiet"}) {
      const Check asked(service, "--json " + question);
      const auto report = nlohmann::json::parse(asked.Output);
      EXPECT_LE(asked.Status, 1);
      EXPECT_EQ(report["status"], asked.Status);
      EXPECT_EQ(report["warnings"].size(), warnings.size()) << settings;
      for (const auto& value : report.value("values", nlohmann::json::array())) {
        namesLines = namesLines || value.value("line", 0) == 2;
      }
      if (question.starts_with("--ext")) {
        EXPECT_EQ(report["explanation"].back()["name"], "verdict");
      }
    }
  }
  EXPECT_TRUE(namesLines);
}

TEST(QuorbinCheck, WarnsOfTheSurroundings) {
  PlainService service("[Hosts]\nDefault=*deny\n");
  const std::string file = service.Path("quorbin.ini");
  const std::string tmp = service.Path("tmp");
  const auto warning = [&](const std::string& prepare) {
    EXPECT_EQ(std::system((prepare).c_str()), 0);
    return Check(service, "--quiet").Output;
  };
  const std::string directory = "warning: the directory of the received files, " + tmp;
  EXPECT_EQ(warning("chmod 662 " + file),
            "warning: " + file + ": the settings can be written by others than their owner\n");
  EXPECT_EQ(warning("chmod 600 " + file + "; chmod 1777 " + tmp),
            directory + ", can be written by others\n");
  EXPECT_EQ(warning("rmdir " + tmp), directory + ": No such file or directory\n");
  EXPECT_EQ(warning("touch " + tmp), directory + ", is none\n");
  EXPECT_EQ(warning("rm " + tmp + "; mkdir -m 700 " + tmp), "");

  // Registered port: no number.
  service.WriteFile("config/quorbin/classes.reg",
                    "REGEDIT4\n[HKEY_CLASSES_ROOT\\Quorbin]\n\"Port\"=\"high\"\n");
  EXPECT_EQ(Check(service, "--quiet").Output,
            "warning: registry value Quorbin\\\\Port: 'high' is no number: counts as 0\n");

  // A port that is taken: by a stranger, and by the service itself.
  const std::string port = std::to_string(service.Port);
  service.Replace("[Global]\nPort=" + port + "\n[Hosts]\nDefault=*deny\n");
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Check(service, "--quiet").Output, "");
  const Check stranger(
      service, "--quiet; XDG_RUNTIME_DIR=/nowhere " QUORBIN_CHECK " --quiet --settings " + file);
  EXPECT_THAT(stranger.Output,
              HasSubstr(": port " + port + " can't be listened on: Address already in use"));
}

TEST(QuorbinCheck, UnreadableSettingsAndWrongUsage) {
  const PlainService service;
  const std::string all = ": every setting has its default, and everybody is let in\n";
  fs::remove(service.Home / "quorbin.ini");
  const Check missing(service);
  EXPECT_EQ(missing.Status, 2);
  EXPECT_THAT(missing.Output,
              HasSubstr("quorbin.ini: can't be read (No such file or directory)" + all));
  EXPECT_EQ(missing.Value("Hosts Default"), "*allow");
  EXPECT_EQ(Check(service, "--host 10.0.0.7").Status, 2);
  fs::create_directory(service.Home / "quorbin.ini");
  const Check directory(service, "--quiet");
  EXPECT_EQ(directory.Status, 2);
  EXPECT_THAT(directory.Output, HasSubstr("quorbin.ini: can't be read (Is a directory)" + all));
  service.Replace("[Hosts]\nDefault=*deny\n");
  EXPECT_EQ(Check(service).Status, 0);
  for (const char* const wrong :
       {"--host a --ext .b", "--name x", "--prefix x", "--nothing", "x", "--ext .x --name a/b",
        "--ext .x --name 'x\\'", "--ext .x --name /h/", "--ext .x --name ''", "--host",
        "--host desk"}) {
    EXPECT_EQ(Check(service, wrong).Status, 2) << wrong;
  }
  EXPECT_EQ(Check(service, "--version").Status, 0);
}

TEST(QuorbinCheck, ValuesAndWhereTheyComeFrom) {
  const PlainService service(
      "[Global]\nControl=1\nPrefix=abc\n[Extensions]\nTxt=*deny\nDefault=*allow\n[Hosts]\n");
  const std::string file = service.Path("quorbin.ini");
  const Check outcome(service);
  for (const std::string& line : Strings{
           "settings: " + file,
           "Global Control: 1 (" + file + ":2)",
           "Global Icon: 0 (default)",
           "Global Port: " + std::to_string(service.Port) + " (registry, " +
               service.Path("config/quorbin/classes.reg") + ")",
           "Global Prefix: /abc. (" + file + ":3)",
           "Global Listen: all addresses (default)",
           "Global Parameters: *allow (default)",
           "Hosts host_allow: 3 (" + file + ":2)",  // by Control
           "Extensions ext_allow: 0 (default)",
           "environment TMP: " + service.Path("tmp") + " (environment TMP)",
           "Extensions Default: *reg (" + file + ":6)",
           "Extensions Txt: *deny (" + file + ":5)",
       }) {
    EXPECT_THAT(outcome.Output, HasSubstr(line + "\n"));
  }
  EXPECT_EQ(outcome.Value("Hosts Default"), "(absent)");  // not read in link mode

  service.Replace("[Global]\nPort=2147483648\nIcon=-32769\n");
  fs::remove(service.Home / "config/quorbin/classes.reg");
  const Check defaults(service);
  EXPECT_EQ(defaults.Value("Global Port"), "9438");
  EXPECT_EQ(defaults.Value("Global Prefix"), "/f$~.");
  EXPECT_EQ(defaults.Value("Global Icon"), "0");
}

struct HostRow {
  std::string Settings;
  std::string Verdict;
  std::string LinkCommand = {};  // before the peer comes
  std::string Peer = "127.0.0.1";
};

// The name of 127.0.0.1 is localhost.
TEST(QuorbinCheck, HostsAreTreatedAsExplained) {
  const HostRow rows[] = {
      // What the default is
      {"[Hosts]\nDefault= *deny \n", "refused by Default=*deny"},
      {"[Hosts]\nhost_allow=1\nDefault=*allow\n", "admitted by Default=*allow"},
      {"[Hosts]\nhost_allow=1\nDefault=*Allow\n", "refused by Default=*deny"},
      {"[Hosts]\nhost_allow=1\n", "refused by Default=*deny"},
      {"[Hosts]\nhost_allow=2\nDefault=deny\n", "admitted by Default=*allow"},
      {"", "admitted by Default=*allow"},
      // Entries under *allow
      {"[Hosts]\nother=*deny\n", "admitted by Default=*allow"},
      {"[Hosts]\nlocalhost=*deny\n", "refused by localhost=*deny"},
      {"[Hosts]\nLocalHost=\n", "admitted by localhost="},
      {"[Hosts]\n127.0.0.1=*allow\nother=*deny\n", "admitted by Default=*allow"},
      {"[Hosts]\n1.x=*deny\n", "admitted by Default=*allow"},
      {"[Hosts]\n127.0.0.1=*allow\nlocalhost=*deny\n", "refused by localhost=*deny"},
      {"[Hosts]\n127.0.0.1=*allow\nlocalhost=*Deny\n", "admitted by localhost=*Deny"},
      {"[Hosts]\n127.0.0.1=*deny\nlocalhost=*allow\n", "refused by 127.0.0.1=*deny"},
      {"[Hosts]\n127.0.0.1=\nlocalhost=*deny\n", "admitted by 127.0.0.1="},
      // Entries under *deny
      {"[Hosts]\nDefault=*deny\nother=*allow\n", "refused by Default=*deny"},
      {"[Hosts]\nDefault=*deny\nlocalhost=*deny\n", "refused by Default=*deny"},
      {"[Hosts]\nDefault=*deny\nlocalhost=\n", "admitted by localhost="},
      {"[Hosts]\nDefault=*deny\n127.0.0.1=*deny\n", "refused by Default=*deny"},
      {"[Hosts]\nDefault=*deny\n127.0.0.1=*deny\nlocalhost=*allow\n",
       "admitted by localhost=*allow"},
      {"[Hosts]\nDefault=*deny\n127.0.0.1=*Deny\n", "admitted by 127.0.0.1=*Deny"},
      // Link mode
      {"[Global]\nControl=1\n[Hosts]\n127.0.0.1=*allow\n",
       "refused: the channel has admitted nobody yet"},
      {"[Global]\nControl=2\n[Hosts]\nhost_allow=3\n",
       "refused: the channel has admitted nobody yet"},
      {"[Hosts]\nhost_allow=3\n", "refused: the link channel is closed, so its table stays empty"},
      {"[Global]\nControl=1\n", "undecided: the table of the running service decides",
       "con 127.0.0.1"},
      {"[Global]\nControl=1\n", "undecided: the table of the running service decides",
       "con 10.0.0.7"},
      // The other family
      {"[Hosts]\nDefault=*deny\n::1=*allow\n", "admitted by ::1=*allow", "", "::1"},
      {"[Hosts]\nDefault=*deny\n127.0.0.1=*allow\n", "refused by Default=*deny", "", "::1"},
      {"[Hosts]\nDefault=*deny\n0::1=*allow\n", "refused by Default=*deny", "", "::1"},
  };
  for (const auto& [settings, verdict, linkCommand, peer] : rows) {
    PlainService service(settings);
    ASSERT_TRUE(service.Start()) << settings;
    if (!linkCommand.empty()) {
      const std::string execute = " " QUORBIN_LINK " execute '" + linkCommand + "'";
      ASSERT_EQ(RunShell("XDG_RUNTIME_DIR=" + service.Path("run") + execute).Status, 0);
    }
    const Check outcome(service, "--host " + peer);
    EXPECT_EQ(outcome.Value("host verdict"), verdict) << settings;
    const bool admitted = service.Connect(peer == "::1").Talk("$VERSION$:1") == "+OK1.1.03";
    if (verdict.starts_with("undecided")) {
      EXPECT_EQ(admitted, linkCommand == "con 127.0.0.1");
      EXPECT_EQ(outcome.Status, 1);
    } else {
      EXPECT_EQ(admitted, verdict.starts_with("admitted")) << settings;
      EXPECT_EQ(outcome.Status, admitted ? 0 : 1) << settings;
    }
  }
}

TEST(QuorbinCheck, ExplainsAHostStepByStep) {
  const PlainService service(
      "[Hosts]\nhost_allow=1\nDefault=*deny\n10.0.0.7=*deny\nPca=*allow\n[Global]\nControl=2\n");
  const std::string file = service.Path("quorbin.ini");
  EXPECT_EQ(Check(service, "--host ' 10.0.0.7' --name pca").Output,
            "settings: " + file + "\nhost address:  10.0.0.7 (argument)\n" +
                "host host_allow: 1 (" + file + ":2)\nhost default: *deny (" + file + ":3)\n" +
                "host entry of the address: *deny (" + file + ":4)\n" +
                "host decides: the name, for the entry of the address is what the default says\n"
                "host name: pca (argument)\n" +
                "host entry of the name: *allow (" + file + ":5)\n" +
                "host verdict: admitted by pca=*allow\n" + "warning: " + file +
                ":4: '10.0.0.7=*deny' is what Default says, so the name of the peer decides\n");
  const Check outcome(service, "--host ::1 --name other");
  EXPECT_EQ(outcome.Value("host entry of the name"), "none");
  EXPECT_EQ(outcome.Value("host verdict"), "refused by Default=*deny");

  // Nothing here could be a name.
  service.Replace(
      "[Hosts]\nHOST_ALLOW=1\nDEFAULT=*deny\n10.0.0.8=*allow\n127.1=*allow\nfd00::7=*allow\n"
      "*LOCAL=*allow\n");
  EXPECT_EQ(Check(service, "--host 10.0.0.7 --name pca").Value("host name"),
            "not looked up: no entry could match one");
}

struct ExtensionRow {
  std::string Settings;
  std::string Ext;
  std::string Verdict;
};

TEST(QuorbinCheck, ExtensionsAreTreatedAsExplained) {
  const std::string denied = "refused: extension denied";
  const std::string wrong = "refused: wrong extension";
  const ExtensionRow rows[] = {
      // What the default is
      {"Default=*deny", ".reg", denied},
      {"ext_allow=1\nDefault=*reg", ".reg", "opened"},
      {"ext_allow=1\nDefault=*allow", ".reg", "opened"},
      {"ext_allow=1\nDefault=*Reg", ".reg", denied},
      {"ext_allow=2\nDefault=deny", ".reg", "opened"},
      {"Default=*deny and some more text", ".reg", "opened"},
      // The outcomes
      {"", "reg", wrong},
      {"", "", wrong},
      {"txt=*deny", ".TXT", denied},
      {"exe=*deny", ".EXE", denied},
      {"", ".EXE", "opened: the received file is the program that runs"},
      {"", ".exe", wrong},
      {"", ".unknown", wrong},
      {"", ".lame", wrong},
      {"Default=*deny\nreg=*reg", ".reg", "opened"},
      {"txt=VIEW \"%1\" first", ".txt", "opened"},
      {"txt=VIEW", ".txt", "opened"},
      {"txt=", ".txt", "refused when the content comes: the entry has no command"},
      {"txt=*allow", ".txt", "received, but there is no such program to open it"},
  };
  PlainService service;
  // No desktop of this machine.
  ASSERT_TRUE(service.Start([] {
    ::setenv("XDG_DATA_DIRS", "/nowhere", 1);
    ::setenv("XDG_DATA_HOME", "/nowhere", 1);
  }));
  for (auto [settings, ext, verdict] : rows) {
    if (const std::size_t view = settings.find("VIEW"); view != std::string::npos) {
      settings.replace(view, 4, service.Path("view"));
    }
    service.Replace("[Extensions]\n" + settings + "\n[Hosts]\nDefault=*allow\n");
    // Before a program it would be the program.
    const std::string prefix = ext == ".EXE" ? "" : "-p ";
    const Check outcome(service,
                        "--ext '" + ext + "' --name f --prefix '" + prefix + "' --suffix -s");
    EXPECT_EQ(outcome.Value("extension verdict"), verdict) << settings;
    EXPECT_EQ(outcome.Status, verdict.starts_with("opened") ? 0 : 1) << settings;

    // What is started shows in the field kdo, and its task number in resu.
    if (ext.empty()) continue;  // can't be sent
    fs::resize_file(service.Home / "out", 0);
    const Peer peer = service.Connect();
    const std::string answer = peer.Talk("$EXT$:" + ext);
    const bool refused = verdict == denied || verdict == wrong;
    EXPECT_EQ(answer, refused ? "-EXT" : "+OK") << settings;
    if (refused) {  // by the name alone as well
      EXPECT_EQ(service.Connect().Talk("$FILE$:f" + ext + "|$DATA$"), "-KDO") << settings;
      continue;
    }
    const std::string data = peer.Talk("$FILE$:f|$KDOPRF$:" + prefix + "|$KDOEXT$:-s|$DATA$");
    EXPECT_EQ(data, verdict.starts_with("refused") ? "-KDO" : "+OK") << settings;
    if (data != "+OK") continue;
    EXPECT_EQ(peer.Talk("$EOF$"), "+OK");
    EXPECT_TRUE(service.Shows("resu: started task "));
    EXPECT_TRUE(service.Shows("kdo: " + outcome.Value("extension command line") + "\n"))
        << Contents(service.Home / "out");
  }
}

TEST(QuorbinCheck, DeniedParametersAreTreatedAsExplained) {
  PlainService service("[Global]\nParameters=*deny\n[Hosts]\nDefault=*allow\n");
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Check(service, "--ext .reg").Value("extension verdict"), "opened");
  for (const char* const text : {"--prefix x", "--suffix x"}) {
    const Check outcome(service, std::string("--ext .reg ") + text);
    EXPECT_EQ(outcome.Value("extension verdict"),
              "refused: Parameters is *deny, so the sender's texts draw -PARAM");
    EXPECT_EQ(outcome.Status, 1);
  }
  const Peer peer = service.Connect();
  EXPECT_EQ(peer.Talk("$EXT$:.reg|$KDOEXT$:x"), "-PARAM");
  EXPECT_EQ(peer.Talk("$KDOPRF$:x"), "-PARAM");
}

TEST(QuorbinCheck, ExplainsAnExtensionStepByStep) {
  const PlainService service("[Hosts]\nDefault=*deny\n");
  const std::string classes = " (registry, " + service.Path("config/quorbin/classes.reg") + ")\n";
  const std::string view = service.Path("view");
  const std::string received = service.Path("tmp") + "/f$~.a b";
  EXPECT_EQ(Check(service, "--ext .reg --name '/h/a b ' --prefix '-x '").Output,
            "settings: " + service.Path("quorbin.ini") + "\nextension asked: .reg (argument)\n" +
                "extension ext_allow: 0 (default)\nextension default: *reg (default)\n"
                "extension entry: none\nextension class: known" +
                classes + "extension open command: " + view + " \"%1\"" + classes +
                "extension command line: " + view + " -x \"" + received + "\"\n" +
                "extension argument 0: " + view + "\nextension argument 1: -x\n" +
                "extension argument 2: " + received + "\n" + "extension program: " + view +
                "\nextension verdict: opened\n");
}

// The README's session is the checker's output on the settings as shipped and the lines added
// there.
TEST(QuorbinCheck, ReadmeSession) {
  std::string settings = Contents(SHIPPED_SETTINGS);
  const auto insertAfter = [&settings](const std::string& line, const std::string& more) {
    const std::size_t place = settings.find(line);
    ASSERT_NE(place, std::string::npos) << line;
    settings.insert(place + line.size(), more);
  };
  insertAfter("\n*local=*allow\n", "10.0.0.0/24=*allow\n10.0.0.9=*Deny\n");
  insertAfter("\nexe=*deny\n", "log=les \"%1\"\n");
  const std::size_t port = settings.find("\nPort=9438\n");
  ASSERT_NE(port, std::string::npos);
  settings.replace(port, 11, "\nPort=0\n");  // of the registry, one that is free
  const PlainService service(settings);
  const std::string readme = Contents(README);
  for (const char* const arguments : {"--quiet", "--host 10.0.0.9"}) {
    std::istringstream output(Check(service, arguments).Output);
    int lines = 0;
    for (std::string line; std::getline(output, line); ++lines) {
      const std::string path = service.Path("quorbin.ini");
      if (const std::size_t at = line.find(path); at != std::string::npos) {
        line.replace(at, path.size(), "/etc/quorbin/quorbin.ini");
      }
      EXPECT_THAT(readme, HasSubstr("\n" + line + "\n"));
    }
    EXPECT_GE(lines, 3);
  }
}

}  // namespace
}  // namespace quorbin::tests
