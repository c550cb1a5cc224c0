#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
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
  std::ranges::replace(bytes, '\0', '0');
  return std::to_string(static_cast<unsigned>(value->Type)) + ":" + bytes;
}

TEST(ClassesFile, FindsValues) {
  const std::string key = "[HKEY_CLASSES_ROOT\\.x", four = "REGEDIT4\n\n" + key + "]\n";
  const std::string five = "Windows Registry Editor Version 5.00\r\n" + key + "]\r\n";
  const std::pair<std::string, std::string> rows[] = {
      {four + "@=\"C:\\\\a \\\"b\\\"\"", "1:C:\\a \"b\"0"},
      {four + "\"\" = \"C:\\bin\" ; told\n", "1:C:\\bin0"},
      {"\xEF\xBB\xBF[hkey_Classes_Root\\.X]\n@=\"a\"\n", "1:a0"},
      {four + ";@=\"a\"\n@=\"b\"\n@=\"c\n@=\"d\" e\n", "1:b0"},
      {four + "@=\"a\"\n@=\"\"\n", "1:0"},
      {four + "@=dword:\n@=dword:-1\n@=dword:100000000\n@=dword:1x\n", "-"},
      {four + "@=hex(2):25,61,\\\r\n  62,\\\r\n\t25\r\n", "2:%ab%0"},
      {five + "@=hex(2):25,00,e4,00,3d,d8,00,de,00,d8,00,00\r\n", "2:%\u00E4\U0001F600\uFFFD0"},
      {five + "@=hex(1):61,00,62,00\r\n", "1:ab0"},
      {five + "@=hex:61,62\r\n", "3:ab"},
      {four + "@=hex(7):61,00", "7:a0"},
      {four + "@=hex(2:61\n@=hex(2)61\n@=hex:6g\n@=hex:161\n@=hex:61,\\", "-"},
      {four + "@=hex:61,\\\n[HKEY_CLASSES_ROOT\\.y]\n@=\"y\"\n", "-"},
      {four + "[-HKEY_CLASSES_ROOT\\.x]\n@=\"a\"\n[HKEY_LOCAL_MACHINE\\.x]\n@=\"b\"\n", "-"},
      {key + "\n@=\"a\"\n" + key + "\\y]\n@=\"b\"\n[HKEY_CLASSES_ROOT.x]\n@=\"c\"\n", "-"},
  };
  for (const auto& [file, value] : rows) EXPECT_EQ(Shown(FindValue(file, ".x", "")), value) << file;
  std::string utf16 = "\xFF\xFE";
  for (const char c : key + "]\r\n\"Po\\\"rt\"=dword:24636261\r\n") utf16 += {c, '\0'};
  EXPECT_EQ(Shown(FindValue(utf16, ".X", "pO\"RT")), "4:abc$");
  EXPECT_EQ(Shown(FindValue(utf16, ".x", "")), "-");
  EXPECT_EQ(Shown(FindValue(utf16 + "x", ".x", "Po\"rt")), "4:abc$");
}

TEST(ExecLine, BecomesAnOpenCommand) {
  const ExecFields fields = {"My App", "pic", "/apps/my.desktop"};
  const std::pair<std::string, std::string> rows[] = {
      {"view -a %u -b %f", R"(view -a "%1" -b)"},
      {R"(view "a b\\")", R"(view "a b"\ "%1")"},
      {R"("/opt/My App/view" "a\"b" 'c d\' "" %f)", R"("/opt/My App/view" a\"b "c d"\ "" "%1")"},
      {R"(view "a=\\" %f)", R"(view a=\ "%1")"},
      {"view %i --name=%c %k %f", R"(view --icon pic "--name=My App" /apps/my.desktop "%1")"},
      {"view %d%m %v x%n %% %%1 %f %", R"(view x % %""1 "%1")"},
      {"run --file-forwarding app @@ %f @@", R"(run --file-forwarding app @@ "%1" @@)"},
      {"run --file-forwarding app @@u %U @@", R"(run --file-forwarding app @@ "%1" @@)"},
  };
  for (const auto& [exec, command] : rows) EXPECT_EQ(OpenCommandOfExec(exec, fields), command);
  EXPECT_EQ(OpenCommandOfExec("view %i", {"", "", ""}), R"(view "%1")");
  for (auto none : {"view 'a", "", "%f", "%m", "sh -c \"cat %f\"", "view --file=%F", "view %fx %u"})
    EXPECT_EQ(OpenCommandOfExec(none, fields), "");
}

TEST(DesktopRegistry, ListsTheClassesFiles) {
  // HOME, XDG_CONFIG_HOME, XDG_CONFIG_DIRS; what the paths of the files begin with.
  const std::string rows[][4] = {
      {"", "", "", "/etc/xdg|"},
      {"/h", "", "", "/h/.config|/etc/xdg|"},
      {"/h", "c", "b", "/h/.config|"},
      {"/h", "/c/", "/a:b::/d", "/c|/a|/d|"},
  };
  for (const auto& row : rows) {
    std::map<std::string, std::string> values = {
        {"HOME", row[0]}, {"XDG_CONFIG_HOME", row[1]}, {"XDG_CONFIG_DIRS", row[2]}};
    std::string begins;
    for (const std::string& path : ClassesFilePaths([&](auto name) { return values[name]; })) {
      begins += path.substr(0, path.rfind("/quorbin/classes.reg")) + "|";
    }
    EXPECT_EQ(begins, row[3]);
  }
}

// On a desktop of its own. The library reads the variables once, so no other test of this program
// may ask it for associations before.
TEST(DesktopRegistry, AnswersAfterTheClassesFiles) {
  std::string root = testing::TempDir() + "desktopXXXXXX";
  fs::current_path(mkdtemp(root.data()));
  for (auto key :
       {"XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS", "PATH"}) {
    setenv(key, root.c_str(), 1);
  }
  for (auto program : {"view", "edit", "xterm"}) fs::create_symlink("/bin/true", program);
  for (auto directory : {"applications", "mime"}) fs::create_directory(directory);
  const std::string entry = "[Desktop Entry]\nType=Application\nName=N\n";
  std::ofstream("applications/view.desktop") << entry + "Exec=view %U\n";
  std::ofstream("applications/edit.desktop") << entry + "Exec=edit %f\nTerminal=true\n";
  std::ofstream("mime/globs") << "t/q:*.q\nt/qz:*.q.z\nt/z:*.z\nt/old:*~\nt/dot:*.\n";
  std::ofstream("mimeapps.list") << "[Default Applications]\nt/q=edit.desktop\nt/z=edit.desktop\n"
                                    "[Added Associations]\nt/q=edit.desktop;view.desktop\n";
  std::ofstream("1.reg") << "[HKEY_CLASSES_ROOT\\.x]\n@=\"t/z\"\n";
  std::ofstream("2.reg") << "[HKEY_CLASSES_ROOT\\.x]\n@=\"no\"\n\"N\"=\"n\"\n";
  ASSERT_EQ(mkfifo("fifo.reg", 0600), 0);
  DesktopRegistry registry({"none.reg", "fifo.reg", "1.reg", "2.reg"});
  const auto answer = [&registry](const std::string& key, const std::string& value = "") {
    return Shown(registry.QueryValue(HKEY_CLASSES_ROOT, key, value));
  };

  const std::string rows[][3] = {
      {".X", "", "1:t/z0"},    {".x", "n", "1:n0"}, {".q", "", "1:t/q0"}, {".Q", "", "1:t/q0"},
      {".q.z", "", "1:t/qz0"}, {".q", "n", "-"},    {".u", "", "-"},      {".~", "", "1:t/old0"},
      {".x.z", "", "-"},       {"q~", "", "-"},     {"./~", "", "-"},     {".\xFF~", "", "-"},
      {".", "", "-"},
  };
  // Of those without an answer all but two match a pattern.
  for (const auto& row : rows) EXPECT_EQ(answer(row[0], row[1]), row[2]) << row[0];
  EXPECT_EQ(answer("." + std::string(254, 'a') + "~"), "-");
  EXPECT_EQ(answer("t/q\\shell\\open\\command"), "1:view \"%1\"0");
  EXPECT_EQ(answer("t/z\\Shell\\Open\\Command"), "1:xterm -e edit \"%1\"0");
  EXPECT_EQ(answer("t/u\\shell\\open\\command"), "-");
  EXPECT_EQ(Shown(registry.QueryValue(HKEY_CLASSES_ROOT + 1, ".x", "")), "-");
  fs::remove("xterm");
  EXPECT_EQ(answer("t/z\\shell\\open\\command"), "-");
  fs::remove_all(root);
}

}  // namespace
}  // namespace quorbin
