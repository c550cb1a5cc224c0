// Picks the backends, builds Form1, wires the events and runs the loop.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>

#include "Associations.hpp"
#include "Connection.hpp"
#include "ConsoleDisplay.hpp"
#include "ConsoleWindow.hpp"
#include "DesktopRegistry.hpp"
#include "ForwardConfirmedResolver.hpp"
#include "InstanceDir.hpp"
#include "Lifecycle.hpp"
#include "LinkCommands.hpp"
#include "LinkServer.hpp"
#include "OutputFiles.hpp"
#include "PollLoop.hpp"
#include "PrivateProfile.hpp"
#include "Processes.hpp"
#include "Signals.hpp"
#include "StandardOutput.hpp"
#include "StandardStreams.hpp"
#include "SystemJournal.hpp"
#include "TcpSocket.hpp"
#include "UnixComputer.hpp"
#include "Windows.hpp"
#ifdef QUORBIN_WINDOWS
#include "WindowSystem.hpp"
#endif

namespace {

using namespace quorbin;

// Where the program is seen and where its events come from.
struct Front {
  EventLoop& Loop;
  StatusDisplay& FControl;
  MainWindow& Window;
  ShellTray& Tray;
  UnixComputer::MessageBox MessageBox;
  // Connects the events of the front itself; queryUnload ends the program.
  std::function<void(Form1& form, std::function<void()> queryUnload)> Wire;
  // Start-up is over.
  std::function<void()> Started = [] {};
  // The click on CheckLog where there is none to be clicked on.
  std::function<void(Form1& form)> ToggleLog = [](Form1&) {};
};

// An event handler that tells the display when it has ended.
template <typename Handler>
auto AsEvent(Form1& form, Handler handler) {
  return [&form, handler](auto&&... arguments) {
    const struct EndOfEvent {
      StatusDisplay& Display;
      ~EndOfEvent() { Display.EndOfEvent(); }
    } atEnd{form.FControl};
    return handler(form, std::forward<decltype(arguments)>(arguments)...);
  };
}

// The program on one front, from Load to the close of the main window.
int Serve(Signals& signals, const Front& front) {
  TcpSocket winsock(front.Loop);
  ForwardConfirmedResolver resolver;
  PrivateProfile profile;
  const std::string executable = ExecutablePath();
  InstanceDir instanceDir(std::filesystem::path(executable).stem());
  UnixComputer computer(executable, instanceDir, front.MessageBox);
  const auto environ = [&computer](const std::string& name) { return computer.Environ(name); };
  DesktopRegistry registry(ClassesFilePaths(environ));
  OutputFiles files;
  Processes processes([] { return OpenCommandOfClass("text/plain"); });
  LinkServer link(front.Loop, instanceDir);
  SystemJournal journal;

  Form1 form({.Winsock1 = winsock,
              .Socket1 = resolver,
              .Profile = profile,
              .Registry = registry,
              .Files = files,
              .Process = processes,
              .FControl = front.FControl,
              .Window = front.Window,
              .Tray = front.Tray,
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
  front.Wire(form, AsEvent(form, [&front](Form1& closing) {
               std::int16_t Cancel = 0;
               QueryUnload(closing, Cancel);
               if (Cancel != 0) return;
               closing.Link.SetLinkMode(0);  // whoever asked for the end still gets its answer
               front.Loop.Quit();
             }));
  signals.Watch(front.Loop, {.Close = AsEvent(form, [](Form1& closing) { closing.Window.Close(); }),
                             .Toggle = AsEvent(form, front.ToggleLog)});

  // Published before the display tells that the program has started.
  AsEvent(form, [](Form1& starting) {
    Load(starting);
    starting.Link.SetLinkMode(1);
  })();
  front.Started();
  front.Loop.Run();
  return EXIT_SUCCESS;
}

int ServeOnConsole(Signals& signals) {
  PollLoop loop;
  StandardOutput output;
  ConsoleDisplay display([&output](std::string_view lines) { output.Print(lines); });
  ConsoleWindow window;
  NoTray tray;
  return Serve(signals, {.Loop = loop,
                         .FControl = display,
                         .Window = window,
                         .Tray = tray,
                         .MessageBox =
                             [](const std::string& text, const std::string& title) {
                               std::cerr << title << ": " << text << std::endl;
                             },
                         .Wire =
                             [&window](Form1&, std::function<void()> queryUnload) {
                               window.SetEvents(std::move(queryUnload));
                             },
                         .ToggleLog =
                             [](Form1& form) {
                               CheckLog_Click(form, form.Session.LogLevel != LogAllMessages);
                             }});
}

#ifdef QUORBIN_WINDOWS
int ServeInWindows(Signals& signals, WindowSystem& windows) {
  return Serve(signals,
               {.Loop = windows.Loop(),
                .FControl = windows.FControl(),
                .Window = windows.Window(),
                .Tray = windows.Tray(),
                .MessageBox =
                    [&signals](const std::string& text, const std::string& title) {
                      signals.Release();
                      ShowMessageBox(text, title);
                    },
                .Wire =
                    [&windows](Form1& form, std::function<void()> queryUnload) {
                      windows.SetEvents({.Command1Click = AsEvent(form, Command1_Click),
                                         .CommandParamClick = AsEvent(form, CommandParam_Click),
                                         .MouseDown = AsEvent(form, Form_MouseDown),
                                         .Resize = AsEvent(form, Form_Resize),
                                         .CheckLogClick = AsEvent(form, CheckLog_Click),
                                         .QueryUnload = std::move(queryUnload)});
                    },
                .Started = [&windows] { windows.ShowMainWindow(); }});
}
#endif

}  // namespace

int main() {
  SecureStandardStreams();
  Signals signals;
#ifdef QUORBIN_WINDOWS
  if (const auto windows = WindowSystem::Open()) return ServeInWindows(signals, *windows);
#endif
  return ServeOnConsole(signals);
}
