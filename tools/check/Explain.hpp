#pragma once

// What happens to one peer or one extension, and why, step by step.

#include <string>

#include "RecordedService.hpp"
#include "Report.hpp"
#include "Viewer.hpp"
#include "Warnings.hpp"

namespace quorbin::check {

// Both take a service that has started, put the steps into report.Explanation and set its result:
// Fine only if the peer is admitted, or the file opened.
void ExplainHost(RecordedService& service, const std::string& address, const Machine& machine,
                 Report& report);
void ExplainExtension(RecordedService& service, const Transfer& transfer, const Machine& machine,
                      Report& report);

}  // namespace quorbin::check
