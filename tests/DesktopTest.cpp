#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include "ClassesFile.hpp"
#include "DesktopRegistry.hpp"
#include "ExecLine.hpp"

namespace quorbin {
namespace {

namespace fs = std::filesystem;

// "TYPE:BYTES" with the zero bytes as '0', or "-" for no value.
std::string Shown(const std::optional<RegValue>& value) {
  if (!value) return "-";
  std::string bytes = value->Bytes;
  for (char& c : bytes) {
    if (c == '\0') c = '0';
  }
  return std::to_string(static_cast<unsigned>(value->Type)) + ":" + bytes;
}

const std::string Regedit4 = "REGEDIT4\n\n[HKEY_CLASSES_ROOT\\.x]\n";
const std::string Regedit5 = "Windows Registry Editor Version 5.00\r\n[HKEY_CLASSES_ROOT\\.x]\r\n";

TEST(ClassesFile, FindsTheDefaultValue) {
  const std::pair<std::string, std::string> rows[] = {
      {"", "-"},
      {Regedit4 + "@=\"C:\\\\a \\\"b\\\"\"", "1:C:\\a \"b\"0"},
      {Regedit4 + "\"\" = \"C:\\bin\" ; told\n", "1:C:\\bin0"},
      {Regedit4 + "@=\"\"\n", "1:0"},
      {"\xEF\xBB\xBF[hkey_Classes_Root\\.X]\n@=\"a\"\n", "1:a0"},
      {Regedit4 + ";@=\"a\"\n@=\"b\"\n@=\"c\n@=\"d\" e\n", "1:b0"},
      {Regedit4 + "@=\"a\"\n@=\"b\"\n", "1:b0"},
      {Regedit4 + "@=dword:24646362\n", "4:bcd$"},
      {Regedit4 + "@=dword:\n@=dword:-1\n@=dword:100000000\n@=dword:1x\n", "-"},
      {Regedit4 + "@=hex(2):25,61,\\\r\n  62,\\\r\n\t25,00\r\n", "2:%ab%0"},
      {Regedit4 + "@=hex(2):61", "2:a0"},
      {Regedit5 + "@=hex(2):25,00,e4,00,3d,d8,00,de,00,d8,00,00\r\n",
       "2:%\xC3\xA4\xF0\x9F\x98\x80\xEF\xBF\xBD"
       "0"},
      {Regedit5 + "@=hex(1):61,00\r\n", "1:a0"},
      {Regedit5 + "@=hex:61,62\r\n", "3:ab"},
      {Regedit4 + "@=hex(7):61,00", "7:a0"},
      {Regedit4 + "@=hex(2:61\n@=hex(2)61\n@=hex:6g\n@=hex:161\n@=hex:61,\\", "-"},
      {Regedit4 + "@=hex:61,\\\n[HKEY_CLASSES_ROOT\\.y]\n@=\"y\"\n", "-"},
      {Regedit4 + "[-HKEY_CLASSES_ROOT\\.x]\n@=\"a\"\n", "-"},
      {"[HKEY_CLASSES_ROOT\\.x\n@=\"a\"\n[HKEY_CLASSES_ROOT\\.x\\y]\n@=\"b\"\n", "-"},
      {"[HKEY_LOCAL_MACHINE\\.x]\n@=\"a\"\n[HKEY_CLASSES_ROOT.x]\n@=\"b\"\n", "-"},
  };
  for (const auto& [file, expected] : rows) {
    EXPECT_EQ(Shown(FindValue(file, ".x", "")), expected) << file;
  }
}

TEST(ClassesFile, FindsANamedValueInUtf16) {
  const std::string text = "[HKEY_CLASSES_ROOT\\Quorbin]\r\n\"Po\\\"rt\"=dword:64636261\r\n";
  std::string file = "\xFF\xFE";
  for (const char c : text) file += {c, '\0'};
  EXPECT_EQ(Shown(FindValue(file, "QUORBIN", "pO\"RT")), "4:abcd");
  EXPECT_EQ(Shown(FindValue(file, "Quorbin", "")), "-");
  EXPECT_EQ(Shown(FindValue(file + "x", "Quorbin", "Po\"rt")), "4:abcd");
}

TEST(ExecLine, BecomesAnOpenCommand) {
  const ExecFields fields = {"My App", "pic", "/apps/my.desktop"};
  const std::pair<std::string, std::string> rows[] = {
      {"view %f", R"(view "%1")"},
      {"view", R"(view "%1")"},
      {"view -a %U -b %f", R"(view -a "%1" -b)"},
      {"view --file=%F", R"(view --file="%1")"},
      {"view --file=%u.x", R"(view --file="%1.x")"},
      {R"(view "--file=a\\%f b\\")", R"(view "--file=a\%1 b"\)"},
      {R"("/opt/My App/view" "a\"b" 'c d\' "" %f)", R"("/opt/My App/view" a\"b "c d"\ "" "%1")"},
      {R"(view "a=\\" %f)", R"(view a=\ "%1")"},
      {"view %i --name=%c %k %f", R"(view --icon pic "--name=My App" /apps/my.desktop "%1")"},
      {"view %d%m %v x%n %% %%1 %f %", R"(view x % %""1 "%1")"},
      {"run --file-forwarding app @@ %f @@", R"(run --file-forwarding app @@ "%1" @@)"},
      {"run --file-forwarding app @@u %U @@", R"(run --file-forwarding app @@ "%1" @@)"},
      {"view 'open", ""},
      {"", ""},
      {"%f", ""},
      {"%m", ""},
  };
  for (const auto& [exec, expected] : rows) {
    EXPECT_EQ(OpenCommandOfExec(exec, fields), expected) << exec;
  }
  EXPECT_EQ(OpenCommandOfExec("view %i", {"", "", ""}), R"(view "%1")");
}

TEST(DesktopRegistry, ListsTheClassesFiles) {
  using Environment = std::map<std::string, std::string>;
  const std::pair<Environment, std::vector<std::string>> rows[] = {
      {{}, {"/etc/xdg/quorbin/classes.reg"}},
      {{{"HOME", "/h"}}, {"/h/.config/quorbin/classes.reg", "/etc/xdg/quorbin/classes.reg"}},
      {{{"HOME", "/h"}, {"XDG_CONFIG_HOME", "/c/"}, {"XDG_CONFIG_DIRS", "/a:b::/d"}},
       {"/c/quorbin/classes.reg", "/a/quorbin/classes.reg", "/d/quorbin/classes.reg"}},
      {{{"HOME", "/h"}, {"XDG_CONFIG_HOME", "c"}, {"XDG_CONFIG_DIRS", "b"}},
       {"/h/.config/quorbin/classes.reg"}},
  };
  for (const auto& [environment, expected] : rows) {
    const auto text = [&env = environment](const std::string& name) {
      return env.contains(name) ? env.at(name) : std::string();
    };
    EXPECT_EQ(ClassesFilePaths(text), expected);
  }
}

// A desktop of its own. The library reads the variables once: nothing in this program may ask it
// for associations before.
class PrivateDesktop : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "desktopXXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    root_ = name;
    for (const char* variable : {"XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME",
                                 "XDG_CONFIG_DIRS", "XDG_CURRENT_DESKTOP"}) {
      setenv(variable, name.c_str(), 1);
    }
    setenv("PATH", (name + "/bin").c_str(), 1);
  }
  void TearDown() override { fs::remove_all(root_); }

  std::string Write(const std::string& path, const std::string& content) const {
    fs::create_directories((root_ / path).parent_path());
    std::ofstream(root_ / path) << content;
    chmod((root_ / path).c_str(), 0700);
    return root_ / path;
  }

  fs::path root_;
};

TEST_F(PrivateDesktop, AnswersBehindTheClassesFiles) {
  for (const char* program : {"bin/view", "bin/edit", "bin/xterm"}) Write(program, "");
  const std::string entry = "[Desktop Entry]\nType=Application\nName=N\n";
  Write("applications/view.desktop", entry + "Exec=view %U\n");
  Write("applications/edit.desktop", entry + "Exec=edit %f\nTerminal=true\n");
  Write("mime/globs2",
        "50:text/q:*.q\n50:text/qz:*.q.z\n50:text/z:*.z\n50:text/old:*~\n50:text/dot:*.\n");
  Write("mimeapps.list",
        "[Default Applications]\ntext/q=edit.desktop\ntext/z=edit.desktop\n"
        "[Added Associations]\ntext/q=edit.desktop;view.desktop\n");
  const std::string first = Write("first.reg", Regedit4 + "@=\"text/z\"\n\"hex\"=hex:00\n");
  const std::string second = Write("second.reg", Regedit4 + "@=\"no\"\n\"N\"=\"n\"\n");
  ASSERT_EQ(mkfifo((root_ / "fifo.reg").c_str(), 0600), 0);
  DesktopRegistry registry({root_ / "none.reg", root_ / "fifo.reg", first, second});

  const std::string command = "\\shell\\open\\command";
  const std::tuple<std::string, std::string, std::string> rows[] = {
      {".X", "", "1:text/z0"},
      {".x", "n", "1:n0"},
      {".q", "", "1:text/q0"},
      {".Q", "", "1:text/q0"},
      {".q.z", "", "1:text/qz0"},
      {".x.z", "", "-"},  // named by nobody, though it ends in .z
      {".q", "n", "-"},
      {".u", "", "-"},
      {".~", "", "1:text/old0"},  // each of the next five would match as well
      {"q~", "", "-"},
      {"./~", "", "-"},
      {".\xFF~", "", "-"},
      {"." + std::string(254, 'a') + "~", "", "-"},
      {".", "", "-"},
      {"text/q" + command, "", "1:view \"%1\"0"},
      {"text/z\\Shell\\Open\\Command", "", "1:xterm -e edit \"%1\"0"},
      {"text/u" + command, "", "-"},
  };
  for (const auto& [key, value, expected] : rows) {
    EXPECT_EQ(Shown(registry.QueryValue(HKEY_CLASSES_ROOT, key, value)), expected) << key;
  }
  EXPECT_EQ(Shown(registry.QueryValue(HKEY_CLASSES_ROOT + 1, ".x", "")), "-");
  fs::remove(root_ / "bin/xterm");
  EXPECT_EQ(Shown(registry.QueryValue(HKEY_CLASSES_ROOT, "text/z" + command, "")), "-");
}

}  // namespace
}  // namespace quorbin
