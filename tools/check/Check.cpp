#include "Check.hpp"

#include "Values.hpp"

namespace quorbin::check {

Findings Check(const Sources& sources, const Machine& machine, const Question& question) {
  RecordedService service(sources);
  service.Start();
  Findings findings;
  findings.SettingsPath = sources.File.Path;
  const SectionsInEffect sections = ReadSections(service);
  findings.Warnings = FindWarnings(service, sources.File, sections, machine);
  findings.Result = findings.Warnings.empty() ? Status::Fine : Status::Doubtful;
  if (question.Host) {
    ExplainHost(service, *question.Host, machine, findings);
  } else if (question.Extension) {
    ExplainExtension(service, *question.Extension, machine, findings);
  } else {
    findings.Values = ListValues(service, sections);
  }
  // A service that does not start admits nobody and opens nothing.
  if (!service.AtStart.Message.empty()) findings.Result = Status::Doubtful;
  return findings;
}

}  // namespace quorbin::check
