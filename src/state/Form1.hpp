#pragma once

#include <array>
#include <cstdint>
#include <random>
#include <string>

#include "AddressResolver.hpp"
#include "Computer.hpp"
#include "FileSystem.hpp"
#include "Journal.hpp"
#include "LinkChannel.hpp"
#include "MainWindow.hpp"
#include "ProcessStarter.hpp"
#include "RegistryReader.hpp"
#include "SettingsFile.hpp"
#include "ShellTray.hpp"
#include "StatusDisplay.hpp"
#include "TransferSession.hpp"
#include "Winsock.hpp"
#include "Words.hpp"

namespace quorbin {

// Values of HostMode and of ExtMode with a meaning of their own.
inline constexpr std::int16_t DenyByDefault = 1;
inline constexpr std::int16_t HostModeLink = 3;  // the link channel's table decides on peers

// What the platform offers; main owns the objects, which outlive Form1. Socket1 is no socket: it
// resolves the address of a peer to its name.
struct Platform {
  Winsock& Winsock1;
  AddressResolver& Socket1;
  SettingsFile& Profile;
  RegistryReader& Registry;
  FileSystem& Files;
  ProcessStarter& Process;
  StatusDisplay& FControl;
  MainWindow& Window;
  ShellTray& Tray;
  LinkChannel& Link;
  Computer& App;
  Journal& Audit;
};

// The one object that holds all state, from start-up to the end of the program.
struct Form1 : Platform {
  explicit Form1(const Platform& platform) : Platform(platform) {}

  TransferSession Session;

  bool TrayIsMissing = false;  // the icon has no place, so the window must not hide behind it
  bool Started = false;        // Load has run to its end; before that a close deletes nothing

  // Settings
  std::int16_t ControlMode = 0;   // 0: link channel closed; 1: it decides on peers; else: open
  std::int16_t IconMode = 0;      // 0: hidden, with a tray icon; below 2: hidden; else: shown
  std::int16_t HostMode = 0;      // 1: deny by default; 3: link channel's table; else: allow
  std::int16_t ExtMode = 0;       // 1: deny by default; else: ask the registry; read at each use
  std::string ListenAddress;      // empty: all; LocalPeer: the Unix socket; else one address
  bool ParametersAllowed = true;  // peers may choose parameters of the viewer
  std::string ProfileBuf;         // read buffer of every settings read

  // Host table of the link channel. LinkHostCount does not count: it is -1 until the first "con"
  // and 0 from then on, and while it is -1 the table admits nobody.
  std::int32_t LinkHostCount = -1;
  std::array<std::string, 33> LinkHosts;  // an empty text is a free slot

  // Value of the link channel's item of this name: the last command that changed it.
  std::string stopsrv{Stopsrv::Ok};

  // Source of generated file names, the same sequence at every start.
  std::mt19937 Rnd;
};

}  // namespace quorbin
