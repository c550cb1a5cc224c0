// quorbin-check: shows the settings in effect, what in them can't have been meant, and what happens
// to a peer or an extension.

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "Check.hpp"
#include "DesktopRegistry.hpp"
#include "EpollLoop.hpp"
#include "Fd.hpp"
#include "ForwardConfirmedResolver.hpp"
#include "HostKeys.hpp"
#include "LastError.hpp"
#include "LinkClient.hpp"
#include "LinkProtocol.hpp"
#include "Output.hpp"
#include "Printable.hpp"
#include "PrivateProfile.hpp"
#include "Protocol.hpp"
#include "ReadFile.hpp"
#include "RemoteName.hpp"
#include "TcpListener.hpp"
#include "Text.hpp"
#include "UnixComputer.hpp"
#include "Usage.hpp"

namespace quorbin::check {
namespace {

namespace fs = std::filesystem;

constexpr const char* SettingsName = "quorbin.ini";
constexpr const char* ProgramName = "Quorbin";
constexpr const char* StatusItem = "stopsrv";

// The directory of the service that belongs to this checker: its own if it has settings, which is
// the one of a copy or a build; else where the service is installed.
struct ServicePlace {
  fs::path Directory;
  bool Installed = false;
};
ServicePlace FindService() {
  const fs::path own = fs::path(ExecutablePath()).parent_path();
  std::error_code ignored;
  // A dangling link counts as settings, too.
  if (fs::symlink_status(own / SettingsName, ignored).type() != fs::file_type::not_found) {
    return {own, false};
  }
  return {own.parent_path() / "lib/quorbin", true};
}

std::string Environ(const std::string& name) {
  const char* const text = std::getenv(name.c_str());
  return text == nullptr ? "" : text;
}

// The directory that the launcher makes and sets TMP to if that is not set.
std::string LauncherTmp() {
  if (!Environ("TMP").empty()) return {};
  const std::string cache = Environ("XDG_CACHE_HOME");
  return (cache.starts_with('/') ? cache : Environ("HOME") + "/.cache") + "/quorbin";
}

// Why the service can't read the file; no error if it can.
std::error_code WhyUnreadable(const std::string& path) {
  const Fd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) return LastError();
  struct stat status;
  if (::fstat(file.Get(), &status) != 0) return LastError();
  if (S_ISDIR(status.st_mode)) return std::make_error_code(std::errc::is_a_directory);
  if (!S_ISREG(status.st_mode)) return std::make_error_code(std::errc::invalid_argument);
  return {};
}

// A name given by the caller instead of a lookup.
class GivenName final : public AddressResolver {
 public:
  explicit GivenName(std::string name) : name_(std::move(name)) {}
  std::string ResolverName(const std::string& /*ResolverAddress*/) override { return name_; }

 private:
  std::string name_;
};

std::string FindProgram(const std::string& program) {
  const std::unique_ptr<char, decltype(&g_free)> path(g_find_program_in_path(program.c_str()),
                                                      g_free);
  return path ? path.get() : std::string();
}

// The service's own listener decides on both. Listening for a moment disturbs nobody if no service
// runs.
bool IsListenAddress(const std::string& address) {
  return address == LocalPeer || TcpListener().SetAddress(address);
}
std::error_code TryPort(const std::string& address, std::int32_t port) {
  TcpListener trial;
  trial.SetAddress(address);
  trial.SetPort(port);
  return trial.Listen();
}

std::optional<std::string> RunningService() {
  const std::string line = std::string(LinkProtocol::Request) + " " + StatusItem;
  const LinkAnswer answer = AskService(ProgramName, line);
  if (!answer.Line) return {};
  if (!answer.Line->starts_with(LinkProtocol::Value)) return answer.Line;
  return answer.Line->substr(LinkProtocol::Value.size());
}

struct Options {
  std::string SettingsPath;  // empty: those of the service
  std::optional<std::string> Host;
  std::optional<std::string> Ext;
  std::string Name;
  std::string Prefix;
  std::string Suffix;
  bool Quiet = false;
  bool AsJson = false;
};

Question QuestionOf(const Options& options) {
  Question question;
  question.Host = options.Host;
  if (options.Ext) {
    question.Extension = Transfer{.Ext = *options.Ext,
                                  .ViewerCmd = {},
                                  .FileName = ReduceName(options.Name),
                                  .KdoPrf = options.Prefix,
                                  .KdoExt = options.Suffix};
  }
  return question;
}

Findings CheckWith(const Options& options) {
  const ServicePlace place = FindService();
  SettingsSource file;
  file.Path = options.SettingsPath.empty() ? (place.Directory / SettingsName).string()
                                           : options.SettingsPath;
  std::error_code ignored;
  // The administrator's file, where the service has a link to it.
  const fs::path target = fs::canonical(file.Path, ignored);
  if (!target.empty()) file.Path = target.string();
  const std::error_code unreadable = WhyUnreadable(file.Path);
  file.Bytes = ReadFile(file.Path).value_or("");

  EpollLoop loop;  // never runs, so the settings are read once
  PrivateProfile profile(loop);
  DesktopRegistry registry(ClassesFilePaths(Environ));
  ForwardConfirmedResolver nameService;
  GivenName given(options.Name);
  AddressResolver& resolver =
      options.Name.empty() ? static_cast<AddressResolver&>(nameService) : given;
  const Sources sources = {
      .Profile = profile,
      .File = file,
      .Registry = registry,
      .RegistryFile = [&registry] { return registry.AnsweringFile(); },
      .Resolver = resolver,
      .NamesFrom = options.Name.empty() ? Source::NameService : Source::Argument,
      .AppPath = place.Directory.string(),
      .Environ = Environ,
      .IsListenAddress = IsListenAddress,
      .LauncherTmp = place.Installed ? LauncherTmp() : std::string()};
  const Machine machine = {
      .FindProgram = FindProgram,
      .TryPort = TryPort,
      .RunningService = RunningService,
  };
  Findings findings = Check(sources, machine, QuestionOf(options));
  if (unreadable) {
    findings.Warnings.insert(findings.Warnings.begin(),
                             {"can't be read (" + unreadable.message() +
                                  "): every setting has its default, and everybody is let in",
                              file.Path, 0});
    findings.Result = Status::Unusable;
  }
  return findings;
}

int Complain(const std::string& sentence) {
  std::cerr << "quorbin-check: " << Printable(sentence) << '\n';
  return static_cast<int>(Status::Unusable);
}

int Run(int argc, char** argv) {
  Options options;
  CLI::App app("Checks the settings of Quorbin and says what they mean for a peer or an extension.",
               "quorbin-check");
  NameInUsageErrors(app);
  app.set_version_flag("--version", QUORBIN_TOOL_VERSION);
  CLI::Option* const host =
      app.add_option("--host", options.Host, "Say what happens to this peer, a numeric address");
  CLI::Option* const ext = app.add_option(
      "--ext", options.Ext, "Say what happens to a file with this extension, .pdf for instance");
  ext->excludes(host);
  CLI::Option* const name =
      app.add_option("--name", options.Name,
                     "With --host, the peer's host name in the place of a look-up; with --ext, the "
                     "name of the file");
  app.add_option("--prefix", options.Prefix, "The sender's text before the file")->needs(ext);
  app.add_option("--suffix", options.Suffix, "The sender's text after the file")->needs(ext);
  app.add_flag("--quiet", options.Quiet, "Print warnings only");
  app.add_flag("--json", options.AsJson, "Print JSON");
  app.add_option("--settings", options.SettingsPath,
                 "The settings file, in the place of the service's own");
  app.footer(
      R"(Exit status without --host and --ext: 0 no warnings, 1 warnings.
With --host: 0 the peer is admitted, 1 it is refused or the link channel decides.
With --ext: 0 the file is opened, 1 it is not.
In all of them 2: the settings can't be read, or wrong usage.)");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : static_cast<int>(Status::Unusable);
  }
  if (options.Host && *options.Host != LocalPeer && !IsAddress(Trim(*options.Host))) {
    return Complain("--host: '" + *options.Host + "' is no numeric address");
  }
  if (name->count() > 0 && !options.Host && !options.Ext) {
    return Complain("--name goes with --host or --ext");
  }
  if (options.Ext && name->count() > 0 && !IsUsableName(ReduceName(options.Name))) {
    return Complain("--name: a file of that name would be received under a made-up one");
  }
  const Findings findings = CheckWith(options);
  const Scope scope = options.Quiet ? Scope::WarningsOnly : Scope::Everything;
  std::cout << (options.AsJson ? AsJson(findings, scope) : AsLines(findings, scope)) << std::flush;
  return static_cast<int>(findings.Result);
}

}  // namespace
}  // namespace quorbin::check

int main(int argc, char** argv) try {
  return quorbin::check::Run(argc, argv);
} catch (const std::exception& error) {
  std::fprintf(stderr, "quorbin-check: %s\n", error.what());
  return 2;
}
