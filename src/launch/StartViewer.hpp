#pragma once

#include <string>

#include "Form1.hpp"

namespace quorbin {

// The texts a viewer's command line is made of.
struct ViewerLine {
  std::string ViewerCmd;  // open command; "%1" in it is the place of the file
  std::string Ext;        // ".EXE" and ".exe" alone: the received file is the program
  std::string KdoPrf;     // sender's text, before the file and its opening quotation mark
  std::string KdoExt;     // sender's text after the file, escapes already resolved
  std::string OutputPath;
  std::string SystemRootDir;  // replaces %SystemRoot% at the start of the line
};

// The command line, trailing blanks included.
std::string AssembleLine(const ViewerLine& parts);

// The sender's text with each backslash directly before a double quote removed, until no such
// pair is left.
std::string Unescape(std::string_view KdoExt);

// Starts the viewer of the received file, which is complete and closed, and shows line, size and
// result. Does not wait for the viewer. A failed start shows in resu, where the task
// number is missing, and in the journal.
void StartViewer(Form1& form);

}  // namespace quorbin
