#pragma once

// What happens to one peer or one extension, and why, step by step.

#include <string>

#include "Findings.hpp"
#include "RecordedService.hpp"
#include "Viewer.hpp"
#include "Warnings.hpp"

namespace quorbin::check {

// Both take a service that has started, put the steps into findings.Explanation and set its result:
// Fine only if the peer is admitted, or the file opened.
void ExplainHost(RecordedService& service, const std::string& address, const Machine& machine,
                 Findings& findings);
void ExplainExtension(RecordedService& service, const Transfer& transfer, const Machine& machine,
                      Findings& findings);

}  // namespace quorbin::check
