// quorbin-check: its warnings on damaged settings, and its explanations compared with what the
// built service does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "Service.hpp"

namespace quorbin::tests {
namespace {

using testing::HasSubstr;

// The checker's output on the settings of a service, in the environment of that service. Paths in
// its directory begin with a slash.
struct Check : Outcome {
  explicit Check(const Service& service, const std::string& arguments = {})
      : Outcome(RunShell(
            "export TMP=" + service.Path("tmp") + " XDG_CONFIG_HOME=" + service.Path("config") +
            " XDG_RUNTIME_DIR=" + service.Path("run") + "; " QUORBIN_CHECK " --settings " +
            service.Path("quorbin.ini") + " " + arguments)) {
    Output = Without(Output, service.Home);
  }
  // The value of the fact or explanation, without its origin; "(absent)" if it is not there.
  std::string Value(const std::string& name) const {
    std::smatch match;
    const std::regex line("\n" + name + ": (.*?)( \\(.*\\))?\n");
    return std::regex_search(Output, match, line) ? match[1].str() : "(absent)";
  }
};

// A service whose settings are the text alone; the registry has a free port for it. It finds no
// desktop of this machine.
struct PlainService : Service {
  explicit PlainService(const std::string& settings = {}) {
    for (const char* name : {"XDG_DATA_DIRS", "XDG_DATA_HOME"}) ::setenv(name, "/nowhere", 1);
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

// Settings files. What follows an arrow is no part of the file but the warning that its line draws,
// or the line above where the arrow begins one. A file without section Hosts gets one in order.
const std::vector<std::string> DamagedFiles = {
    // In order
    "",
    "; comment\n# comment\n\n[GLOBAL]\r\ncontrol = 2 \r\nListen=127.0.0.1\nParameters=*deny\n",
    "[Global]\nListen=*local\nPort=80\n[Hosts]\nDefault=*deny\n*local=*allow\n",
    // Lines, sections and keys that the service ignores
    "Control=1 -> 'Control=1' is ignored: no key, no '=' or no section\n",
    "[Global]\nControl -> 'Control' is ignored: no key, no '=' or no section\n",
    "[Global]\n=1 -> '=1' is ignored: no key, no '=' or no section\n",
    "[Hots] -> unknown section 'Hots': its lines are ignored\n10.0.0.7=*deny\n",
    "[Global]\nIcon=2\n[global] -> repeated section 'global': counts as one with line 1\n",
    "[Global]\nProt=80 -> unknown key 'Prot' of Global: it is ignored\n",
    "[Global]\nDefault=*deny -> unknown key 'Default' of Global: it is ignored\n",
    "[Global]\nIcon=1\nICON=2 -> repeated key 'ICON': line 2 counts\n",
    // Numbers, the port and the prefix
    "[Global]\nControl=yes -> Control: 'yes' is no number: counts as 0\n",
    "[Global]\nControl= -> Control: '' is no number: counts as 0\n",
    "[Global]\nControl=2 ; open -> Control: '2 ; open' counts as 2\n",
    "[Global]\nIcon=2.5 -> Icon: '2.5' counts as 2\n",
    "[Global]\nIcon=32768 -> Icon: '32768' is too large for its field: counts as 0\n",
    "[Global]\nIcon=00000000000000000002 -> Icon: the value is cut after 19 bytes\n",
    "[Global]\nPort=80 -> port 80 is below 1024: an ordinary user may not listen on it\n",
    "[Global]\nPrefix=" + std::string(200, 'p') + "-> Prefix: the value is cut after 199 bytes\n",
    R"([Global]
Prefix=
-> Prefix is empty: every hidden file in the directory of the received files is deleted
)",
    R"([Global]
Prefix=\.
-> Prefix is empty: every hidden file in the directory of the received files is deleted
)",
    "[Extensions]\next_allow=one -> ext_allow: 'one' is no number: counts as 0\n",
    // The service ends at its start
    "[Global]\nPort=65536 -> port 65536 is none: the service ends at its start\n",
    "[Global]\nPort=-1 -> port -1 is none: the service ends at its start\n",
    "[Global]\nListen=localhost\n"
    "-> Listen: 'localhost' is none of its values: the service ends at its start\n",
    "[Global]\nParameters=*Deny\n"
    "-> Parameters: '*Deny' is none of its values: the service ends at its start\n",
    // Hosts
    "[Hosts]\nhost_allow=3 -> host_allow=3 while Control is 0: nobody is let in\n",
    R"([Hosts]
host_allow=1x        -> host_allow: '1x' counts as 1
Default=*Allow
-> Default: '*Allow' counts as absent, for it is not exactly *allow; *deny is in effect
)",
    R"([Hosts]
Default=             -> Default: '' counts as absent; *allow is in effect
10.0.0.7=*Deny       -> '10.0.0.7=*Deny' lets the peer in, for it is not exactly *deny
10.0.0.8=*deny ; no  -> '10.0.0.8=*deny ; no' lets the peer in, for it is not exactly *deny
pca=deny             -> 'pca=deny' lets the peer in, for it is not exactly *deny
pcb=no               -> 'pcb=no' lets the peer in
pcc=                 -> 'pcc=' lets the peer in
127.0.0.1=*deny
::1=*deny
)",
    R"([Hosts]
Default=*deny
10.0.0.7=*deny
-> '10.0.0.7=*deny' is what Default says, so the name of the peer decides
pca=*deny
127.0.0.0/8=*allow
-> '127.0.0.0/8' matches no peer: networks are not known, only single addresses
10.0.*=*allow        -> '10.0.*' matches no peer: networks are not known, only single addresses
10.0.0.=*allow       -> '10.0.0.' matches no peer: it is no whole address
10.1=*allow          -> '10.1' matches no peer: write 10.0.0.1
::ffff:10.0.0.7=*allow
-> '::ffff:10.0.0.7' matches no peer: write 10.0.0.7
fd00:0::7=*allow     -> 'fd00:0::7' matches no peer: write fd00::7
fe80::1%1=*allow     -> 'fe80::1%1' matches no peer: write fe80::1%lo
fe80::1=*allow
-> 'fe80::1' matches no peer: a link-local peer is seen with its interface, as in fe80::1%eth0
10.0.0.7:9438=*allow -> '10.0.0.7:9438' matches no peer: it is neither an address nor a name
pc.example.=*allow   -> 'pc.example.' matches no peer: a name has no dot at its ends
)",
    "[Hosts]\nDefault=*deny\nFD00::7=*allow\nfe80::1%eth0=*allow\nPC-A.lan=*allow\n",
    // Extensions
    R"([Extensions]
Default=*deny and more
-> Default: '*deny and more' counts as absent, for it is not exactly *deny; *reg is in effect
)",
    "[Extensions]\n"
    ".txt=*deny -> extension '.txt' has its dot: write it without, or it matches nothing\n",
    "[Extensions]\nTXT=*deny -> extension 'TXT' is in upper case: it counts for every letter "
    "case\n",
    "[Extensions]\ncom=*Deny -> 'com=*Deny' is taken for a command, for it is not exactly *deny\n",
    "[Extensions]\nbat=deny -> 'bat=deny' is taken for a command, for it is not exactly *deny\n",
    "[Extensions]\npdf=*allow -> 'pdf=*allow' is taken for a command, for it is not exactly *reg\n",
    "[Extensions]\nps=*registered -> 'ps=*registered' is taken for a command\n",
    "[Extensions]\nhtm= -> 'htm=' has no command: such files are refused\n",
    "[Extensions]\nlog=cat -> the command of 'log' has no %1: the file is put at its end, where a "
    "name with "
    "blanks adds arguments\n",
    "[Extensions]\nlog=cat %1 -> the command of 'log' has %1 without quotation marks, where a name "
    "with blanks adds arguments\n",
    // Everybody on this machine
    "[Hosts]\nDefault=*deny\n::1=*allow\n"
    "-> ::1 may connect and choose parameters: every user of this machine can run viewers with "
    "arguments of his own; set Listen=*local or Parameters=*deny\n",
    R"([Extensions]
regx=regedit "%1"    -> the command of 'regx': no program 'regedit' is found
exe=anything "%1"
c=cat "%1"
)",
    "[Extensions]\npdf=cat \"%1\" " + std::string(200, 'x') +
        "-> pdf: the value is cut after 199 bytes\n",
    // What could steer a terminal
    "[Glo\x1B]2;x\x07"
    "bal]-> unknown section 'Glo\\x1B': its lines are ignored\n",
    "[Global]\n\xFF\x9B=\xE2\x80\xAE-> unknown key '\\xFF\\x9B' of Global: it is ignored\n",
};

// In words, and as JSON.
TEST(QuorbinCheck, WarnsOfDamagedSettings) {
  const PlainService service;
  ASSERT_GE(DamagedFiles.size(), 40U);
  for (const std::string& text : DamagedFiles) {
    std::string settings, warnings;
    std::istringstream lines(text);
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
      const std::size_t arrow = line.find("-> ");
      if (arrow != 0) {
        settings += line.substr(0, arrow) + "\n";
        ++number;
      }
      if (arrow == line.npos) continue;
      warnings +=
          "warning: /quorbin.ini:" + std::to_string(number) + ": " + line.substr(arrow + 3) + "\n";
    }
    if (settings.find("[Hosts]") == settings.npos) settings += "[Hosts]\nDefault=*deny\n";
    service.Replace(settings);
    const Check outcome(service, "--quiet");
    EXPECT_EQ(outcome.Output, warnings) << settings;
    EXPECT_EQ(outcome.Status, warnings.empty() ? 0 : 1) << settings;
    for (const std::string scope : {"", " --quiet"}) {
      const auto report = nlohmann::json::parse(Check(service, "--json" + scope).Output);
      EXPECT_EQ(report["warnings"].size(), std::ranges::count(warnings, '\n')) << settings;
      EXPECT_EQ(report["status"], outcome.Status) << settings;
    }
  }
}

TEST(QuorbinCheck, WarnsOfTheSurroundings) {
  PlainService service("[Hosts]\nDefault=*deny\n");
  const std::pair<std::string, std::string> rows[] = {
      // what is done in the service's directory, the one warning
      {"chmod 662 quorbin.ini",
       "/quorbin.ini: the settings can be written by others than their owner"},
      {"chmod 600 quorbin.ini; chmod 1777 tmp",
       "the directory of the received files, /tmp, can be written by others"},
      {"rmdir tmp", "the directory of the received files, /tmp: No such file or directory"},
      {"touch tmp", "the directory of the received files, /tmp, is none"},
      {"rm tmp; mkdir -m 700 tmp; printf '[Global]\\nParameters=*deny\\n[Hosts]' >quorbin.ini",
       "section Hosts has neither Default nor host_allow: peers without an entry are let in"},
      {"printf '\\nDefault=*deny\\n' >>quorbin.ini; sed -i 's/[0-9]*\"$/high\"/' "
       "config/quorbin/classes.reg",
       "registry value Quorbin\\\\Port: 'high' is no number: counts as 0"},
      {"sed -i 's/high/70000/' config/quorbin/classes.reg",
       "registry value Quorbin\\\\Port: port 70000 is none: the service ends at its start"},
  };
  for (const auto& [prepare, warning] : rows) {
    EXPECT_EQ(RunShell("cd " + service.Home.string() + "; " + prepare).Output, "");
    EXPECT_EQ(Check(service, "--quiet").Output, "warning: " + warning + "\n");
  }

  // A port that is taken: by the service itself, and by a stranger.
  const std::string port = std::to_string(service.Port);
  service.Replace("[Global]\nPort=" + port + "\n[Hosts]\nDefault=*deny\n");
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(Check(service, "--quiet").Output, "");
  fs::rename(service.Home / "run", service.Home / "other");
  EXPECT_EQ(
      Check(service, "--quiet").Output,
      "warning: /quorbin.ini:2: port " + port + " can't be listened on: Address already in use\n");
}

TEST(QuorbinCheck, UnreadableSettingsAndWrongUsage) {
  const PlainService service;
  fs::remove(service.Home / "quorbin.ini");
  for (const std::string reason : {"No such file or directory", "Is a directory"}) {
    const Check outcome(service);
    EXPECT_EQ(outcome.Status, 2);
    EXPECT_THAT(outcome.Output,
                HasSubstr("warning: /quorbin.ini: can't be read (" + reason +
                          "): every setting has its default, and everybody is let in\n"));
    EXPECT_EQ(outcome.Value("Hosts Default"), "*allow");
    EXPECT_EQ(Check(service, "--host 10.0.0.7").Status, 2);
    fs::create_directory(service.Home / "quorbin.ini");
  }
  service.Replace("[Hosts]\nDefault=*deny\n");
  for (const char* const wrong : {"--host a --ext .b", "--name x", "--prefix x", "--nothing",
                                  "--ext .x --name a/b", "--ext .x --name ''", "--host desk"}) {
    const Check outcome(service, wrong);
    EXPECT_EQ(outcome.Status, 2) << wrong;
    EXPECT_TRUE(outcome.Output.starts_with("quorbin-check: ")) << outcome.Output;
  }
  EXPECT_EQ(Check(service, "--version").Status, 0);
}

TEST(QuorbinCheck, ValuesAndWhereTheyComeFrom) {
  const PlainService service(
      "[Global]\nControl=1\nPrefix=abc\n[Extensions]\ntxt=*deny\nDefault=*allow\n[Hosts]\n");
  // In link mode the section Hosts is not read.
  EXPECT_EQ(
      Check(service).Output,
      "settings: /quorbin.ini\nGlobal Control: 1 (/quorbin.ini:2)\nGlobal Icon: 0 (default)\n"
      "Global Port: " +
          std::to_string(service.Port) +
          " (registry, /config/quorbin/classes.reg)\n"
          "Global Prefix: /abc. (/quorbin.ini:3)\nGlobal Listen: all addresses (default)\n"
          "Global Parameters: *allow (default)\nHosts host_allow: 3 (/quorbin.ini:2)\n"
          "Extensions ext_allow: 0 (default)\nenvironment TMP: /tmp (environment TMP)\n"
          "environment SystemRoot:  (environment SystemRoot)\n"
          "Extensions Default: *reg (/quorbin.ini:6)\nExtensions txt: *deny (/quorbin.ini:5)\n");
  const auto values = nlohmann::json::parse(Check(service, "--json").Output).at("values");
  EXPECT_EQ(values.at(0).dump(), R"({"line":2,"name":"Control","origin":"file",)"
                                 R"("place":"/quorbin.ini","topic":"Global","value":"1"})");

  service.Replace("[Global]\nPort=2147483648\n");
  fs::remove(service.Home / "config/quorbin/classes.reg");
  EXPECT_EQ(Check(service).Value("Global Port"), "9438");
}

// The name of 127.0.0.1 is localhost.
TEST(QuorbinCheck, HostsAreTreatedAsExplained) {
  const struct {
    std::string Settings, Verdict, Peer = "127.0.0.1";
  } rows[] = {
      // What the default is
      {"Default= *deny ", "refused by Default=*deny"},
      {"host_allow=1\nDefault=*allow", "admitted by Default=*allow"},
      {"host_allow=1\nDefault=*Allow", "refused by Default=*deny"},
      {"host_allow=1", "refused by Default=*deny"},
      {"host_allow=2\nDefault=deny", "admitted by Default=*allow"},
      {"", "admitted by Default=*allow"},
      // Entries under *allow
      {"other=*deny", "admitted by Default=*allow"},
      {"localhost=*deny", "refused by localhost=*deny"},
      {"LocalHost=", "admitted by localhost="},
      {"127.0.0.1=*allow\nother=*deny", "admitted by Default=*allow"},
      {"127.0.0.1=*allow\nlocalhost=*deny", "refused by localhost=*deny"},
      {"127.0.0.1=*allow\nlocalhost=*Deny", "admitted by localhost=*Deny"},
      {"127.0.0.1=*deny\nlocalhost=*allow", "refused by 127.0.0.1=*deny"},
      {"127.0.0.1=\nlocalhost=*deny", "admitted by 127.0.0.1="},
      // Entries under *deny
      {"Default=*deny\nother=*allow", "refused by Default=*deny"},
      {"Default=*deny\nlocalhost=*deny", "refused by Default=*deny"},
      {"Default=*deny\nlocalhost=", "admitted by localhost="},
      {"Default=*deny\n127.0.0.1=*deny", "refused by Default=*deny"},
      {"Default=*deny\n127.0.0.1=*deny\nlocalhost=*allow", "admitted by localhost=*allow"},
      {"Default=*deny\n127.0.0.1=*Deny", "admitted by 127.0.0.1=*Deny"},
      {"Default=*deny\n::1=*allow", "admitted by ::1=*allow", "::1"},
      // Link mode
      {"127.0.0.1=*allow\n[Global]\nControl=1", "refused: the channel has admitted nobody yet"},
      {"host_allow=3\n[Global]\nControl=2", "refused: the channel has admitted nobody yet"},
      {"host_allow=3", "refused: the link channel is closed, so its table stays empty"},
      {"[Global]\nControl=1", "undecided: the table of the running service decides"},
  };
  for (const auto& [settings, verdict, peer] : rows) {
    SCOPED_TRACE(settings);
    PlainService service("[Hosts]\n" + settings + "\n");
    ASSERT_TRUE(service.Start());
    if (verdict.starts_with("undecided")) {
      const std::string execute = " " QUORBIN_LINK " execute 'con " + peer + "'";
      ASSERT_EQ(RunShell("XDG_RUNTIME_DIR=" + service.Path("run") + execute).Status, 0);
    }
    const Check outcome(service, "--host " + peer);
    EXPECT_EQ(outcome.Value("host verdict"), verdict);
    EXPECT_EQ(outcome.Status, verdict.starts_with("admitted") ? 0 : 1);
    const bool admitted = service.Connect(peer == "::1").Talk("$VERSION$:1") == "+OK1.1.03";
    EXPECT_EQ(admitted, !verdict.starts_with("refused"));
  }
}

TEST(QuorbinCheck, ExplainsAHostStepByStep) {
  const PlainService service(
      "[Hosts]\nhost_allow=1\nDefault=*deny\n10.0.0.7=*deny\nPca=*allow\n[Global]\nControl=2\n");
  EXPECT_EQ(
      Check(service, "--host ' 10.0.0.7' --name pca").Output,
      "settings: /quorbin.ini\nhost address:  10.0.0.7 (argument)\n"
      "host host_allow: 1 (/quorbin.ini:2)\nhost default: *deny (/quorbin.ini:3)\n"
      "host entry of the address: *deny (/quorbin.ini:4)\n"
      "host decides: the name, for the entry of the address is what the default says\n"
      "host name: pca (argument)\nhost entry of the name: *allow (/quorbin.ini:5)\n"
      "host verdict: admitted by pca=*allow\n"
      "warning: /quorbin.ini:4: '10.0.0.7=*deny' is what Default says, so the name of the peer "
      "decides\n");
  EXPECT_EQ(Check(service, "--host ::1 --name other").Value("host entry of the name"), "none");

  // Nothing here could be a name.
  service.Replace(
      "[Hosts]\nHOST_ALLOW=1\nDEFAULT=*deny\n10.0.0.8=*allow\n127.1=*allow\nfd00::7=*allow\n"
      "*LOCAL=*allow\n");
  EXPECT_EQ(Check(service, "--host 10.0.0.7 --name pca").Value("host name"),
            "not looked up: no entry could match one");
}

TEST(QuorbinCheck, ExtensionsAreTreatedAsExplained) {
  const std::string denied = "refused: extension denied";
  const std::string wrong = "refused: wrong extension";
  const std::array<std::string, 3> rows[] = {
      // What the default is
      {"Default=*deny", ".reg", denied},
      {"ext_allow=1\nDefault=*reg", ".reg", "opened"},
      {"ext_allow=1\nDefault=*allow", ".reg", "opened"},
      {"ext_allow=1\nDefault=*Reg", ".reg", denied},
      {"ext_allow=2\nDefault=deny", ".reg", "opened"},
      // The outcomes
      {"eg=cat", "reg", wrong},
      {"", "", wrong},
      {"exe=*deny", ".EXE", denied},
      {"", ".EXE", "opened: the received file is the program that runs"},
      {"", ".exe", wrong},
      {"", ".lame", wrong},
      {"Default=*deny\nreg=*reg", ".reg", "opened"},
      {"txt=VIEW \"%1\" first", ".txt", "opened"},
      {"txt=", ".txt", "refused when the content comes: the entry has no command"},
      {"txt=*allow", ".txt", "received, but there is no such program to open it"},
  };
  PlainService service;
  ASSERT_TRUE(service.Start());
  for (const auto& [settings, ext, verdict] : rows) {
    SCOPED_TRACE(settings);
    const std::regex view("VIEW");
    service.Replace("[Extensions]\n" + std::regex_replace(settings, view, service.Path("view")) +
                    "\n[Hosts]\nDefault=*allow\n");
    // Before a program it would be the program.
    const std::string prefix = ext == ".EXE" ? "" : "-p ";
    const Check outcome(service,
                        "--ext '" + ext + "' --name f --prefix '" + prefix + "' --suffix -s");
    EXPECT_EQ(outcome.Value("extension verdict"), verdict);
    EXPECT_EQ(outcome.Status, verdict.starts_with("opened") ? 0 : 1);

    const Peer peer = service.Connect();
    const bool refused = verdict == denied || verdict == wrong;
    ASSERT_EQ(peer.Talk("$EXT$:" + ext), refused ? "-EXT" : "+OK");
    if (refused) {  // by the name alone as well
      EXPECT_EQ(service.Connect().Talk("$FILE$:f" + ext + "|$DATA$"), "-KDO");
      continue;
    }
    const std::string data = peer.Talk("$FILE$:f|$KDOPRF$:" + prefix + "|$KDOEXT$:-s|$DATA$");
    EXPECT_EQ(data, verdict.starts_with("refused") ? "-KDO" : "+OK");
    if (data != "+OK") continue;
    fs::resize_file(service.Home / "out", 0);
    EXPECT_EQ(peer.Talk("$EOF$"), "+OK");
    // What is started shows in the field kdo, and its task number in resu.
    EXPECT_TRUE(service.Shows("resu: started task "));
    EXPECT_THAT(Without(Contents(service.Home / "out"), service.Home),
                HasSubstr("kdo: " + outcome.Value("extension command line") + "\n"));
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
  const std::string arguments = "--ext .reg --name '/h/a b ' --prefix '-x '";
  EXPECT_EQ(Check(service, arguments).Output,
            "settings: /quorbin.ini\nextension asked: .reg (argument)\n"
            "extension ext_allow: 0 (default)\nextension default: *reg (default)\n"
            "extension entry: none\n"
            "extension class: known (registry, /config/quorbin/classes.reg)\n"
            "extension open command: /view \"%1\" (registry, /config/quorbin/classes.reg)\n"
            "extension command line: /view -x \"/tmp/f$~.a b\"\nextension argument 0: /view\n"
            "extension argument 1: -x\nextension argument 2: /tmp/f$~.a b\n"
            "extension program: /view\nextension verdict: opened\n");
  const auto report = nlohmann::json::parse(Check(service, arguments + " --json").Output);
  EXPECT_EQ(report["explanation"].back().dump(),
            R"({"name":"verdict","origin":"decision","topic":"extension","value":"opened"})");
  EXPECT_EQ(Check(service, "--ext reg").Value("extension entry"),
            "not looked for: an extension begins with a dot");
}

// The README's session is the checker's output on the settings as shipped and the lines added
// there.
TEST(QuorbinCheck, ReadmeSession) {
  std::string settings = Contents(SHIPPED_SETTINGS);
  const auto replace = [&settings](const std::string& from, const std::string& to) {
    const std::size_t place = settings.find(from);
    ASSERT_NE(place, std::string::npos) << from;
    settings.replace(place, from.size(), to);
  };
  replace("\n*local=*allow\n", "\n*local=*allow\n10.0.0.0/24=*allow\n10.0.0.9=*Deny\n");
  replace("\nexe=*deny\n", "\nexe=*deny\nlog=les \"%1\"\n");
  replace("\nPort=9438\n", "\nPort=0\n");  // of the registry, one that is free
  const PlainService service(settings);
  const std::string readme = Without(Contents(README), "/etc/quorbin");
  for (const char* const arguments : {"--quiet", "--host 10.0.0.9"}) {
    std::istringstream output(Check(service, arguments).Output);
    int lines = 0;
    for (std::string line; std::getline(output, line); ++lines) {
      EXPECT_THAT(readme, HasSubstr("\n" + line + "\n"));
    }
    EXPECT_GE(lines, 3);
  }
}

}  // namespace
}  // namespace quorbin::tests
