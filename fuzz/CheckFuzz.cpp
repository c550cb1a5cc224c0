// quorbin-check over the corpus of the settings: the input is a host name or file name, an
// extension, and after these two lines the settings. What is reported must be printable, and its
// verdicts those of the service's routines on their own.

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Check.hpp"
#include "CheckHost.hpp"
#include "Fakes.hpp"
#include "Output.hpp"
#include "Require.hpp"
#include "ResolveExtension.hpp"

using namespace quorbin;

namespace {

constexpr const char* Peer = "10.0.0.7";

// No byte but the line ends steers a terminal. JSON implies that the texts are UTF-8.
void RequirePrintable(const std::string& text, std::string_view file) {
  const auto steers = [](char c) { return (c >= 0 && c < ' ' && c != '\n') || c == 0x7F; };
  fuzz::Require(std::ranges::none_of(text, steers), "no control bytes are printed", file);
}

check::Findings Ask(const std::string& name, std::string_view file,
                    const check::Question& question) {
  fakes::Journal journal;
  fakes::FakeProfile profile;
  profile.ini = file;
  fakes::FakeRegistry registry;
  fakes::FakeResolver resolver(journal);
  resolver.name = name;
  const check::SettingsSource source = {.Path = "/opt/q/quorbin.ini", .Bytes = std::string(file)};
  const check::Sources sources = {
      .Profile = profile,
      .File = source,
      .Registry = registry,
      .RegistryFile = [] { return std::string(); },
      .Resolver = resolver,
      .NamesFrom = check::Source::NameService,
      .AppPath = "/opt/q",
      .Environ = [](const std::string&) { return std::string(); },
      .IsListenAddress =
          [&journal](const std::string& address) {
            return fakes::FakeWinsock(journal).SetLocalAddress(address);
          },
  };
  const check::Machine machine = {
      .FindProgram = [](const std::string&) { return std::string("/bin/view"); },
      .TryPort = [](const std::string&, std::int32_t) { return std::error_code(); },
      .RunningService = [] { return std::optional<std::string>(); },
  };
  check::Findings findings = check::Check(sources, machine, question);
  for (const check::Scope scope : {check::Scope::Everything, check::Scope::WarningsOnly}) {
    RequirePrintable(check::AsLines(findings, scope), file);
    const std::string json = check::AsJson(findings, scope);
    RequirePrintable(json, file);
    fuzz::Require(nlohmann::json::accept(json), "JSON parses", file);
  }
  const auto lines = static_cast<std::size_t>(std::ranges::count(file, '\n')) + 1;
  for (const check::Warning& warning : findings.Warnings) {
    fuzz::Require(warning.Line <= lines, "a warning is on a line of the file", file);
  }
  return findings;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Each entry costs a reading of the file, so long files would take all the time.
  constexpr std::size_t longest = 4096;  // bytes
  if (size > longest) return 0;
  std::string_view file = fuzz::Input(data, size);
  const std::string name(fuzz::TakeLine(file));
  const std::string ext = "." + std::string(fuzz::TakeLine(file));
  Ask(name, file, {});
  try {
    fakes::World world{std::string(file)};
    world.resolver.name = name;
    const check::Findings host = Ask(name, file, {.Host = Peer, .Extension = {}});
    fuzz::Require((host.Result == check::Status::Fine) == CheckHost(world.form, Peer).Allowed,
                  "the peer's verdict is the service's", file);

    const check::Transfer transfer = {.Ext = ext, .ViewerCmd = {}};
    const check::Findings extension = Ask(name, file, {.Host = {}, .Extension = transfer});
    std::string command;
    const bool opened = ResolveExtension(world.form, ext, command) && !command.empty();
    fuzz::Require((extension.Result == check::Status::Fine) == opened,
                  "the extension's verdict is the service's", file);
  } catch (const fakes::Ended&) {
    // A start that ends has no decisions.
  }
  return 0;
}
