// The registry export classes.reg: the input is a key, a value's name, and after these two lines
// the file.

#include "ClassesFile.hpp"
#include "Fakes.hpp"
#include "RegKeys.hpp"
#include "Require.hpp"

using namespace quorbin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view file = fuzz::Input(data, size);
  const std::string key(fuzz::TakeLine(file));
  const std::string name(fuzz::TakeLine(file));
  const auto value = FindValue(file, key, name);
  if (!value) return 0;
  if (value->Type == RegType::REG_SZ || value->Type == RegType::REG_EXPAND_SZ) {
    fuzz::Require(value->Bytes.ends_with('\0'), "a text ends", file);
  }
  if (!file.starts_with("\xFF\xFE")) {
    const std::string other = std::string(file) + "\n[HKEY_CLASSES_ROOT\\" + key + "x]\n@=\"x\"";
    const auto again = FindValue(other, key, name);
    // An unfinished list of bytes at the end would go on with a line of the new text.
    fuzz::Require(again && again->Bytes == value->Bytes, "another key changes nothing", file);
  }
  fakes::World world;
  world.registry.values[key + "|" + name] = *value;
  const std::string text = ReadRegValue(world.form, HKEY_CLASSES_ROOT, key, name);
  fuzz::Require(text.find('\0') == text.npos, "a text without zero bytes", file);
  return 0;
}
