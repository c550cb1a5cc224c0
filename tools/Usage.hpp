#pragma once

// What the command lines of all clients have in common.

#include <CLI/CLI.hpp>
#include <string>

namespace quorbin {

// Errors of usage begin with the program's name, as every other message of it does.
inline void NameInUsageErrors(CLI::App& app) {
  app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
    return failed->get_name() + ": " + CLI::FailureMessage::simple(failed, error);
  });
}

}  // namespace quorbin
