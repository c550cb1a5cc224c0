#pragma once

#include <string>

#include "Form1.hpp"

namespace quorbin {

// Whether a file with this extension (dot included) may be opened, and with which command line. On
// a refusal the status fields already show the reason, and ViewerCmd is empty, unless the extension
// has no leading dot: then ViewerCmd is left alone.
bool ResolveExtension(Form1& form, const std::string& Ext, std::string& ViewerCmd);

}  // namespace quorbin
