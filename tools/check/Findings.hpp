#pragma once

// What the checker finds, as bytes; Output makes them printable.

#include <cstddef>
#include <string>
#include <vector>

namespace quorbin::check {

// The exit status.
enum class Status { Fine = 0, Doubtful = 1, Unusable = 2 };

// Where a value comes from.
enum class Source {
  File,
  Default,
  Registry,
  Environment,
  Launcher,  // which names a directory where the environment does not
  Argument,
  NameService,
  Service,
  Decision
};
struct Origin {
  Source From = Source::Decision;  // a decision follows from the facts before it
  std::string Place = {};          // path of a file, name of a variable; may be empty
  std::size_t Line = 0;            // in that file, from 1; 0 elsewhere
};

// One value in effect, or one step of an explanation.
struct Fact {
  std::string Topic;  // the section, or what is explained
  std::string Name;
  std::string Value;
  Origin Of;
};

struct Warning {
  std::string Text;
  std::string File;      // empty if it concerns none
  std::size_t Line = 0;  // 0 for the file as a whole
};

struct Findings {
  std::string SettingsPath;
  std::vector<Fact> Values;
  std::vector<Warning> Warnings;
  std::vector<Fact> Explanation;
  Status Result = Status::Fine;
};

}  // namespace quorbin::check
