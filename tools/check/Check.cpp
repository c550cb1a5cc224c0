#include "Check.hpp"

#include "Values.hpp"

namespace quorbin::check {

Report Check(const Sources& sources, const Machine& machine, const Question& question) {
  RecordedService service(sources);
  service.Start();
  Report report;
  report.SettingsPath = sources.File.Path;
  const SectionsInEffect sections = ReadSections(service);
  report.Warnings = FindWarnings(service, sources.File, sections, machine);
  report.Result = report.Warnings.empty() ? Status::Fine : Status::Doubtful;
  if (question.Host) {
    ExplainHost(service, *question.Host, machine, report);
  } else if (question.Extension) {
    ExplainExtension(service, *question.Extension, machine, report);
  } else {
    report.Values = ListValues(service, sections);
  }
  // A service that does not start admits nobody and opens nothing.
  if (!service.AtStart.Message.empty()) report.Result = Status::Doubtful;
  return report;
}

}  // namespace quorbin::check
