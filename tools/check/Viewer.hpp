#pragma once

// The command that the service would start for a received file.

#include <string>
#include <vector>

#include "RecordedService.hpp"

namespace quorbin::check {

struct Transfer {
  std::string Ext;  // with its dot
  std::string ViewerCmd;
  std::string FileName = {};  // empty: some name with the extension
  std::string KdoPrf = {};
  std::string KdoExt = {};
};

struct ViewerStart {
  std::string Line;
  std::vector<std::string> Arguments;  // the first is the program
  bool RunsReceivedFile = false;       // which is the first argument
};

ViewerStart ViewerOf(RecordedService& service, const Transfer& transfer);

}  // namespace quorbin::check
