#include "Output.hpp"

#include <nlohmann/json.hpp>

#include "Printable.hpp"

namespace quorbin::check {

namespace {

using Json = nlohmann::ordered_json;

// Words of the origins, of both forms of output.
const char* Word(Source source) {
  switch (source) {
    case Source::File:
      return "file";
    case Source::Default:
      return "default";
    case Source::Registry:
      return "registry";
    case Source::Environment:
      return "environment";
    case Source::Launcher:
      return "launcher";
    case Source::Argument:
      return "argument";
    case Source::NameService:
      return "name service";
    case Source::Service:
      return "service";
    case Source::Decision:
      break;
  }
  return "decision";
}

std::string AtLine(const std::string& file, std::size_t line) {
  std::string place = Printable(file);
  if (line != 0) place += ":" + std::to_string(line);
  return place;
}

// In parentheses; empty for what follows from the facts before it.
std::string Parenthesis(const Origin& of) {
  switch (of.From) {
    case Source::Decision:
      return {};
    case Source::File:
      return " (" + AtLine(of.Place, of.Line) + ")";
    case Source::Registry:
      return " (registry, " + (of.Place.empty() ? "the desktop" : Printable(of.Place)) + ")";
    case Source::Environment:
      return " (environment " + Printable(of.Place) + ")";
    default:
      return std::string(" (") + Word(of.From) + ")";
  }
}

std::string Lines(const std::vector<Fact>& facts) {
  std::string lines;
  for (const Fact& fact : facts) {
    lines += Printable(fact.Topic) + " " + Printable(fact.Name) + ": " + Printable(fact.Value) +
             Parenthesis(fact.Of) + "\n";
  }
  return lines;
}

Json Objects(const std::vector<Fact>& facts) {
  Json list = Json::array();
  for (const Fact& fact : facts) {
    Json object = {{"topic", Printable(fact.Topic)},
                   {"name", Printable(fact.Name)},
                   {"value", Printable(fact.Value)},
                   {"origin", Word(fact.Of.From)}};
    if (!fact.Of.Place.empty()) object["place"] = Printable(fact.Of.Place);
    if (fact.Of.Line != 0) object["line"] = fact.Of.Line;
    list.push_back(std::move(object));
  }
  return list;
}

}  // namespace

std::string AsLines(const Findings& findings, Scope scope) {
  std::string lines;
  if (scope == Scope::Everything) {
    lines = "settings: " + Printable(findings.SettingsPath) + "\n" + Lines(findings.Values) +
            Lines(findings.Explanation);
  }
  for (const Warning& warning : findings.Warnings) {
    const std::string place = AtLine(warning.File, warning.Line);
    lines += "warning: " + (place.empty() ? "" : place + ": ") + Printable(warning.Text) + "\n";
  }
  return lines;
}

std::string AsJson(const Findings& findings, Scope scope) {
  Json object = {{"settings", Printable(findings.SettingsPath)}};
  if (scope == Scope::Everything) {
    object["values"] = Objects(findings.Values);
    object["explanation"] = Objects(findings.Explanation);
  }
  Json& warnings = object["warnings"] = Json::array();
  for (const Warning& warning : findings.Warnings) {
    Json one = {{"text", Printable(warning.Text)}};
    if (!warning.File.empty()) one["file"] = Printable(warning.File);
    if (warning.Line != 0) one["line"] = warning.Line;
    warnings.push_back(std::move(one));
  }
  object["status"] = static_cast<int>(findings.Result);
  return object.dump(2) + "\n";
}

}  // namespace quorbin::check
