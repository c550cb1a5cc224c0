// quorbin-link: sends one line to the link channel of the running service and prints its answer.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "AddressText.hpp"
#include "LinkClient.hpp"
#include "LinkProtocol.hpp"
#include "Printable.hpp"
#include "Protocol.hpp"
#include "Usage.hpp"

namespace quorbin {
namespace {

enum ExitStatus { Accepted = 0, Refused = 1, NoService = 2 };

int Complain(int status, const std::string& sentence) {
  std::cerr << "quorbin-link: " << Printable(sentence) << '\n';
  return status;
}

// Prints the answer and returns the exit status.
int ShowAnswer(const std::string& answer) {
  if (answer.starts_with(LinkProtocol::Value)) {
    std::cout << Printable(answer.substr(LinkProtocol::Value.size())) << '\n';
    return Accepted;
  }
  if (answer != LinkProtocol::Accepted && answer != LinkProtocol::Refused) {
    return Complain(NoService, "the service gave an answer that is none");
  }
  std::cout << answer << '\n';
  return answer == LinkProtocol::Accepted ? Accepted : Refused;
}

// Sends the line and returns the exit status.
int Ask(const std::string& line, const std::string& program) {
  const LinkAnswer answer = AskService(program, line);
  return answer.Line ? ShowAnswer(*answer.Line) : Complain(NoService, answer.Failure);
}

// ---- A command that admits nobody

// The service accepts any text with "con", and compares it with the peers' addresses byte by byte.
void WarnIfNobody(const std::string& command) {
  constexpr std::string_view con = "con ";
  if (!std::ranges::equal(command.substr(0, con.size()), con,
                          [](unsigned char a, char b) { return std::tolower(a) == b; })) {
    return;
  }
  const std::size_t first = command.find_first_not_of(' ', con.size());
  if (first == command.npos) return;
  const std::string peer = command.substr(first, command.find_last_not_of(' ') + 1 - first);
  const std::string address = AddressText(peer);
  if (peer == LocalPeer || peer == address) return;
  std::cerr << "quorbin-link: warning: '" << Printable(peer) << "' "
            << (address.empty() ? "is no address and matches nobody"
                                : "matches nobody; the service writes it " + address)
            << '\n';
}

// The name of a program is one component of a path.
std::string CheckProgram(const std::string& name) {
  const bool usable = !name.empty() && name != "." && name != ".." && name.find('/') == name.npos;
  return usable ? "" : "'" + name + "' is no program name";
}

}  // namespace
}  // namespace quorbin

int main(int argc, char** argv) try {
  using namespace quorbin;
  std::string verb;
  std::vector<std::string> words;
  std::string program = "Quorbin";
  CLI::App app("Controls the running Quorbin service of the same user.", "quorbin-link");
  NameInUsageErrors(app);
  app.set_version_flag("--version", QUORBIN_TOOL_VERSION);
  app.add_option("VERB", verb,
                 "execute gives a command, request asks for the last one, notify stops the service")
      ->required()
      ->check(CLI::IsMember(std::vector<std::string>{std::string(LinkProtocol::Execute),
                                                     std::string(LinkProtocol::Request),
                                                     std::string(LinkProtocol::Notify)}));
  app.add_option("TEXT", words, "The command or the item; several words count as one text")
      ->required();
  app.add_option("--name", program, "Name of the service's program")
      ->check(CheckProgram)
      ->capture_default_str();
  app.footer(R"(Exit status: 0 accepted, 1 refused, 2 no service; above that for wrong usage.

Examples:
  quorbin-link execute con 10.0.0.7    admit a host (Control=1)
  quorbin-link execute dis 10.0.0.7    dismiss it; two "con" need two "dis"
  quorbin-link execute stopsrv         stop the service
  quorbin-link request stopsrv         show the last command)");
  CLI11_PARSE(app, argc, argv);

  std::string text = words.front();
  for (std::size_t i = 1; i < words.size(); ++i) text += " " + words[i];
  const std::string line = verb + " " + text;
  if (text.find('\n') != text.npos) return Complain(Refused, "refused: the text holds a line end");
  if (line.size() > LinkProtocol::MaxLine)
    return Complain(Refused, "refused: the text is too long");
  if (verb == LinkProtocol::Execute) WarnIfNobody(text);
  return Ask(line, program);
} catch (const std::exception& error) {
  std::fprintf(stderr, "quorbin-link: %s\n", error.what());
  return 2;
}
