#pragma once

#include <string>

namespace quorbin {

// The user's file associations: shared MIME info, mimeapps.list and .desktop files. The databases
// are read where XDG_DATA_HOME, XDG_DATA_DIRS, XDG_CONFIG_HOME and XDG_CONFIG_DIRS pointed at the
// first call.

// Content type of an extension, with its dot; an exact name comes before one in small letters, and
// of several types the one with the highest weight counts. Empty if the database does not name the
// extension, and for what can't be one: no leading dot, nothing after it, a slash, a zero byte, no
// UTF-8 or more than 255 bytes. A compound extension (.tar.gz) must itself be in the database.
std::string ClassOfExtension(const std::string& Ext);

// Open command of the default application for the content type, with the placeholder "%1" for the
// file. An application that needs a terminal is used only if no other handles the type, and then
// runs in the desktop's terminal. Empty if there is none.
std::string OpenCommandOfClass(const std::string& contentType);

}  // namespace quorbin
