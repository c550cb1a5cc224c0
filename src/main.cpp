// Picks the backends, builds Form1, wires the events and runs the loop.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "AsEvent.hpp"
#include "Associations.hpp"
#include "Connection.hpp"
#include "ConsoleFront.hpp"
#include "DesktopRegistry.hpp"
#include "EpollLoop.hpp"
#include "ForwardConfirmedResolver.hpp"
#include "InstanceDir.hpp"
#include "Lifecycle.hpp"
#include "LinkCommands.hpp"
#include "LinkServer.hpp"
#include "OutputFiles.hpp"
#include "PrivateProfile.hpp"
#include "Processes.hpp"
#include "Rights.hpp"
#include "Signals.hpp"
#include "StandardOutput.hpp"
#include "StandardStreams.hpp"
#include "StreamSocket.hpp"
#include "SystemJournal.hpp"
#include "UnixComputer.hpp"
#include "Windows.hpp"
#ifdef QUORBIN_WINDOWS
#include "QtFront.hpp"
#endif

namespace {

using namespace quorbin;

// The windows, or the console where there is no screen.
std::unique_ptr<Front> OpenFront(EventLoop& loop, StandardOutput& output) {
#ifdef QUORBIN_WINDOWS
  if (auto windows = OpenWindows(loop)) return windows;
#endif
  return std::make_unique<ConsoleFront>(loop,
                                        [&output](std::string_view lines) { output.Print(lines); });
}

// The main window closes.
void Unload(Form1& form) {
  std::int16_t Cancel = 0;
  QueryUnload(form, Cancel);
  form.Link.SetLinkMode(0);  // a client that asked for the end still gets its answer
}

}  // namespace

int main() {
  SecureStandardStreams();
  Signals signals;
  EpollLoop loop;
  StandardOutput output;
  const std::unique_ptr<Front> front = OpenFront(loop, output);

  const std::string executable = ExecutablePath();
  InstanceDir instanceDir(std::filesystem::path(executable).stem());
  StreamSocket winsock(loop, instanceDir);
  ForwardConfirmedResolver resolver;
  PrivateProfile profile(loop);
  UnixComputer computer(executable, instanceDir,
                        [&signals, &front](const std::string& text, const std::string& title) {
                          signals.Release();
                          front->ShowMessage(text, title);
                        });
  DesktopRegistry registry(
      ClassesFilePaths([&computer](const std::string& name) { return computer.Environ(name); }));
  Processes processes([] { return OpenCommandOfClass("text/plain"); });
  OutputFiles files;
  LinkServer link(loop, instanceDir);
  SystemJournal journal;

  Form1 form({.Winsock1 = winsock,
              .Socket1 = resolver,
              .Profile = profile,
              .Registry = registry,
              .Files = files,
              .Process = processes,
              .FControl = front->FControl(),
              .Window = front->Window(),
              .Tray = front->Tray(),
              .Link = link,
              .App = computer,
              .Audit = journal});

  winsock.SetEvents({.ConnectionRequest = AsEvent(form, ConnectionRequest),
                     .DataArrival = AsEvent(form, DataArrival),
                     .Close = AsEvent(form, PeerClosed),
                     .Error = AsEvent(form, Error)});
  link.SetEvents({.LinkExecute = AsEvent(form, LinkExecute),
                  .LinkRequest = AsEvent(form, LinkRequest),
                  .LinkNotify = AsEvent(form, LinkNotify)});
  front->SetEvents({.Command1Click = AsEvent(form, Command1_Click),
                    .CommandParamClick = AsEvent(form, CommandParam_Click),
                    .MouseDown = AsEvent(form, Form_MouseDown),
                    .Resize = AsEvent(form, Form_Resize),
                    .CheckLogClick = AsEvent(form, CheckLog_Click),
                    .QueryUnload = AsEvent(form, Unload)});
  signals.Watch(loop, {.Close = AsEvent(form, [](Form1& closing) { closing.Window.Close(); }),
                       .Toggle = [&front] { front->UserSignal(); }});

  // Published before the display reports that the program has started.
  loop.Raise(AsEvent(form, [](Form1& starting) {
    Load(starting);
    starting.Link.SetLinkMode(1);
  }));
  GiveUpRights();
  front->Run();
  return EXIT_SUCCESS;
}
