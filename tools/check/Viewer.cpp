#include "Viewer.hpp"

#include "CommandLine.hpp"
#include "Lifecycle.hpp"
#include "StartViewer.hpp"

namespace quorbin::check {

ViewerStart ViewerOf(RecordedService& service, const Transfer& transfer) {
  TransferSession& session = service.Form.Session;
  session.Ext = transfer.Ext;
  session.ViewerCmd = transfer.ViewerCmd;
  session.FileName = transfer.FileName.empty() ? "file" + transfer.Ext : transfer.FileName;
  session.KdoPrf = transfer.KdoPrf;
  session.KdoExt = transfer.KdoExt;
  ViewerStart start;
  start.Line = service.Record(StartViewer).Started.front();
  start.Arguments = SplitCommandLine(start.Line);
  start.RunsReceivedFile =
      !start.Arguments.empty() && start.Arguments.front() == OutputPath(service.Form.Session);
  return start;
}

}  // namespace quorbin::check
