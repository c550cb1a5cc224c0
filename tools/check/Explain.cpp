#include "Explain.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "CheckHost.hpp"
#include "Configuration.hpp"
#include "RegKeys.hpp"
#include "ResolveExtension.hpp"
#include "Values.hpp"
#include "Words.hpp"

namespace quorbin::check {

namespace {

constexpr const char* HostTopic = "host";
constexpr const char* ExtensionTopic = "extension";
constexpr const char* NotThere = "none";

// Collects the steps of one explanation.
class Steps {
 public:
  Steps(std::string topic, Findings& findings) : topic_(std::move(topic)), findings_(findings) {}
  void Add(std::string name, std::string value, Origin of = {}) {
    findings_.Explanation.push_back({topic_, std::move(name), std::move(value), std::move(of)});
  }
  void Verdict(bool favourable, std::string text) {
    findings_.Result = favourable ? Status::Fine : Status::Doubtful;
    Add("verdict", std::move(text));
  }

 private:
  std::string topic_;
  Findings& findings_;
};

Origin From(Source source, std::string place = {}) {
  return {.From = source, .Place = std::move(place)};
}

void AddDefault(Steps& steps, RecordedService& service, const SettingRead& mode,
                const Trace& asked) {
  steps.Add(mode.Key, mode.Answer, service.OriginOf(mode));
  const DefaultInEffect found = DefaultOf(service, asked);
  steps.Add("default", found.Keyword, found.Of);
}

// An entry as it was read, or that there is none if the default text was the answer.
void AddEntry(Steps& steps, const RecordedService& service, const std::string& name,
              const SettingRead& read) {
  if (read.Line == 0) {
    steps.Add(name, NotThere);
  } else {
    steps.Add(name, read.Answer, service.OriginOf(read));
  }
}

// Only the running service has the table, and its channel does not reveal it.
void ExplainLinkMode(const RecordedService& service, const Machine& machine, Steps& steps) {
  const bool byControl = service.Form.ControlMode == 1;
  const SettingRead* const decides = byControl ? service.Find(Section::Global, Key::Control)
                                               : service.Find(Section::Hosts, Key::HostAllow);
  steps.Add("decides", "the table of the link channel", service.OriginOf(*decides));
  if (service.Form.ControlMode == 0) {
    steps.Verdict(false, "refused: the link channel is closed, so its table stays empty");
    return;
  }
  const std::optional<std::string> item = machine.RunningService();
  if (!item) {
    steps.Add("last link command", "no service is running", From(Source::Service));
    steps.Verdict(false, "refused: the table is empty when the service starts");
    return;
  }
  steps.Add("last link command", *item, From(Source::Service));
  if (*item == service.Form.stopsrv) {
    steps.Verdict(false, "refused: the channel has admitted nobody yet");
    return;
  }
  steps.Verdict(false, "undecided: the table of the running service decides");
}

// Everything but link mode: CheckHost reads Default, the entry of the address and, if that does not
// decide, the entry of the name.
void ExplainEntries(RecordedService& service, const Trace& asked, const HostDecision& decision,
                    Steps& steps) {
  AddDefault(steps, service, *service.Find(Section::Hosts, Key::HostAllow), asked);
  const std::vector<SettingRead> entries(std::next(asked.Reads.begin()), asked.Reads.end());
  AddEntry(steps, service, "entry of the address", entries.front());
  if (entries.size() > 1) {
    if (entries.front().Line != 0) {
      steps.Add("decides", "the name, for the entry of the address is what the default says");
    }
    if (asked.Lookups.empty()) {
      steps.Add("name", "not looked up: no entry could match one");
    } else {
      const std::string& name = asked.Lookups.front().Name;
      steps.Add("name", name.empty() ? NotThere : name, service.OriginOfNames());
      AddEntry(steps, service, "entry of the name", entries.back());
    }
  }
  steps.Verdict(decision.Allowed,
                (decision.Allowed ? "admitted by " : "refused by ") + decision.By);
}

void AddQuery(Steps& steps, RecordedService& service, const std::string& name,
              const RegistryQuery& query) {
  if (!query.Found) {
    steps.Add(name, NotThere);
    return;
  }
  std::string text;
  service.Record([&](Form1& form) {
    text = ReadRegValue(form, HKEY_CLASSES_ROOT, query.KeyPath, query.ValueName);
  });
  steps.Add(name, text, From(Source::Registry, query.File));
}

void ExplainViewer(RecordedService& service, const Transfer& transfer, const Machine& machine,
                   Steps& steps) {
  const ViewerStart start = ViewerOf(service, transfer);
  steps.Add("command line", start.Line);
  for (std::size_t i = 0; i < start.Arguments.size(); ++i) {
    steps.Add("argument " + std::to_string(i), start.Arguments[i]);
  }
  if (start.RunsReceivedFile) {
    steps.Verdict(true, "opened: the received file is the program that runs");
    return;
  }
  std::string program;
  if (!start.Arguments.empty()) program = machine.FindProgram(start.Arguments.front());
  steps.Add("program", program.empty() ? NotThere : program);
  steps.Verdict(!program.empty(),
                program.empty() ? "received, but there is no such program to open it" : "opened");
}

}  // namespace

void ExplainHost(RecordedService& service, const std::string& address, const Machine& machine,
                 Findings& findings) {
  Steps steps(HostTopic, findings);
  steps.Add("address", address, From(Source::Argument));
  service.UseNameService();
  HostDecision decision;
  const Trace asked = service.Record([&](Form1& form) { decision = CheckHost(form, address); });
  if (asked.Reads.empty()) {
    ExplainLinkMode(service, machine, steps);
  } else {
    ExplainEntries(service, asked, decision, steps);
  }
}

void ExplainExtension(RecordedService& service, const Transfer& transfer, const Machine& machine,
                      Findings& findings) {
  Steps steps(ExtensionTopic, findings);
  steps.Add("asked", transfer.Ext, From(Source::Argument));
  bool allowed = false;
  Transfer opened = transfer;
  const Trace asked = service.Record(
      [&](Form1& form) { allowed = ResolveExtension(form, transfer.Ext, opened.ViewerCmd); });
  if (asked.Reads.empty()) {
    steps.Add("entry", "not looked for: an extension begins with a dot");
  } else {
    AddDefault(steps, service, asked.Reads.front(), asked);
    AddEntry(steps, service, "entry", asked.Reads.back());
  }
  constexpr std::array<const char*, 2> questions = {"class", "open command"};
  for (std::size_t i = 0; i < asked.Queries.size(); ++i) {
    AddQuery(steps, service, questions.at(i), asked.Queries[i]);
  }
  if (!allowed) {
    steps.Verdict(false, "refused: " + service.Form.FControl.Text(Field::resu));
  } else if (opened.ViewerCmd.empty()) {
    steps.Verdict(false, "refused when the content comes: the entry has no command");
  } else if (!service.Form.ParametersAllowed && !(opened.KdoPrf + opened.KdoExt).empty()) {
    steps.Verdict(false, "refused: Parameters is *deny, so the sender's texts draw -PARAM");
  } else {
    ExplainViewer(service, opened, machine, steps);
  }
}

}  // namespace quorbin::check
