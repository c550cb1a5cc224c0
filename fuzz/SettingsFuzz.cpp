// The settings file: the input is a section, a key, and after these two lines the file. The
// decisions on peers and extensions are asked for as well.

#include <algorithm>

#include "CheckHost.hpp"
#include "Configuration.hpp"
#include "Fakes.hpp"
#include "Require.hpp"
#include "ResolveExtension.hpp"

using namespace quorbin;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view file = fuzz::Input(data, size);
  const std::string section(fuzz::TakeLine(file));
  std::string key(fuzz::TakeLine(file));

  const auto value = FindSetting(file, section, key);
  if (value && !value->empty()) {
    const bool inside =
        value->data() >= file.data() && value->data() + value->size() <= file.data() + file.size();
    fuzz::Require(inside, "a view into the file", file);
    fuzz::Require(value->find('\n') == value->npos, "one line", file);
    fuzz::Require(
        value->find_first_of(" \t") != 0 && value->find_last_of(" \t") != value->size() - 1,
        "no blanks around it", file);
  }
  fuzz::Require(key.find_first_of(";#[") != 0 || !value, "comments and sections are no keys", file);
  std::ranges::transform(key, key.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  fuzz::Require(FindSetting(file, section, key) == value, "letter case doesn't count", file);
  const std::string longer = std::string(file) + "\n[" + section + "]\n" + key + "=later";
  if (value) fuzz::Require(*FindSetting(longer, section, key) == *value, "the first counts", file);

  try {
    fakes::World world{std::string(file)};
    const std::string ext = "." + key;
    std::string command;
    const bool allowed = ResolveExtension(world.form, ext, command);
    fuzz::Require(allowed || command.empty(), "a refused extension has no command", file);
    fuzz::Require(command.size() < LongValue, "a value is cut", file);
    world.resolver.name = key;
    if (world.form.HostMode == HostModeLink) {
      fuzz::Require(!CheckHost(world.form, "10.0.0.7").Allowed, "the unused table admits nobody",
                    file);
    } else {
      const std::string_view all = FindSetting(file, "Hosts", "Default").value_or("");
      const bool listed = FindSetting(file, "Hosts", "10.0.0.7") || FindSetting(file, "Hosts", key);
      const bool admitted = CheckHost(world.form, "10.0.0.7").Allowed;
      if (!listed && all == "*deny") fuzz::Require(!admitted, "the default denies", file);
      if (!listed && all == "*allow") fuzz::Require(admitted, "the default admits", file);
    }
  } catch (const fakes::Ended&) {
    // A port that can't be listened on ends the program.
  }
  return 0;
}
