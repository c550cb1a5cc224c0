#pragma once

// What the service accepts silently, but nobody can have meant.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Findings.hpp"
#include "RecordedService.hpp"
#include "Values.hpp"

namespace quorbin::check {

// What is asked of the machine besides the settings.
struct Machine {
  // The path of a program as the service would find it; empty if there is none.
  std::function<std::string(const std::string& program)> FindProgram;
  // Whether the port of the address, or of all addresses if that is empty, could be listened on
  // now.
  std::function<std::error_code(const std::string& address, std::int32_t port)> TryPort;
  // The value of the item of the running service; nullopt if none runs.
  std::function<std::optional<std::string>()> RunningService;
};

// All warnings, of a service that has started: those on lines in the order of the file, then the
// others.
std::vector<Warning> FindWarnings(RecordedService& service, const SettingsSource& file,
                                  const SectionsInEffect& sections, const Machine& machine);

}  // namespace quorbin::check
