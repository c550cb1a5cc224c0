// Whole conversations, event by event, on a platform in memory.

#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "Fakes.hpp"
#include "Windows.hpp"
#include "modulkorb.hpp"

namespace quorbin::fakes {
namespace {

using Strings = std::vector<std::string>;

TEST(Conversation, ControlMessages) {
  World world;
  world.Connect();
  const struct {
    std::string Chunk, Reply;
    Field Shown;
    std::string Text;
  } rows[] = {
      {"$VERSION$:2.0", "+OK1.1.03", Field::partner, "10.0.0.7 (Version 2.0)"},
      {"$VERSION$:", "+OK1.1.03", Field::partner, "10.0.0.7 (Version 2.0) (Version )"},
      {"$FILETYPE$:Bxyz", "+OK", Field::ftp, "binary"},
      {"$FILETYPE$:T", "+OK", Field::ftp, "text"},
      {"$FILETYPE$:X", "-PARAM", Field::resu, "wrong param"},
      {"$filetype$:B", "-PARAM", Field::ftp, "text"},
      {"\x15", "-PARAM", Field::resu, "wrong param"},
      {"   ", "-PARAM", Field::resu, "wrong param"},
      {" $EOF$", "-PARAM", Field::resu, "wrong param"},
      {"$KDOEXT$:-z  \x15", "+OK", Field::kext, "-z"},
      {"$KDOEXT$:  ", "+OK", Field::kext, "-z"},
      {"$KDOPRF$:-a  \x15", "+OK", Field::kprf, "-a  "},
      {"$KDOPRF$:", "+OK", Field::kprf, "-a  "},
      {"$EXT$:.txt", "+OK", Field::kdo, "view \"%1\""},
      {"$FILE$:x.bad\x15\x15", "+OK", Field::fext, ".txt"},
      {"$FILE$:y.bad  ", "+OK", Field::resu, "OK"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(world.Chunk(row.Chunk), row.Reply) << row.Chunk;
    EXPECT_EQ(world.Text(row.Shown), row.Text) << row.Chunk;
  }
  EXPECT_EQ(world.form.Session.FileName, "y.bad");
  EXPECT_EQ(world.Text(Field::Satz), "");
  CheckLog_Click(world.form, true);
  world.Chunk("nonsense  \x15");
  EXPECT_EQ(world.Text(Field::Satz), "nonsense\r\n");
}

// What the file holds, the counters and the log after a transfer of these chunks.
TEST(Conversation, Transfers) {
  const std::string overrun = "-Fehler: Daten l\xE4nger als Pufferl\xE4nge: Rest=";
  const std::string atEof = "-Fehler: Buffer-length at EOF: ";
  const struct {
    std::string Version, Type;
    Strings Chunks, Replies;
    std::string File;
    int TotalBytes, BlockCount;
  } rows[] = {
      {"", "T", {"AB", "CD", "EF$EOF$"}, {"+OK", "+OK", "+OK"}, "AB\r\nCD\r\nEF\r\n", 11, 3},
      {"", "T", {"AB", "$EOF$xyz"}, {"+OK", "+OK"}, "AB\r\n", 2, 1},
      {"", "T", {"$EOF$"}, {"+OK"}, "", 0, 0},
      {"1",
       "T",
       {"xy$EOF$z", "$FILETYPE$:B \x15", "$BUFFLEN$0000000029", "$EOF$"},
       {"+OK", "+OK", "+OK", "+OK"},
       "xy$EOF$z\r\n$FILETYPE$:B \x15\r\n$BUFFLEN$0000000029\r\n",
       41,
       3},
      {"1", "B", {"$BUFFLEN$0000000029abcdefghij", "$EOF$"}, {"+OK", "+OK"}, "abcdefghij", 10, 1},
      {"1",
       "B",
       {"$BUFFLEN$        29abcdef", "ghij", "$EOF$"},
       {"", "+OK", "+OK"},
       "abcdefghij",
       10,
       2},
      {"1",
       "B",
       {"$BUFFLEN$0000000029abcdefghijklmno", "p", "$BUFFLEN$0000000020q", "$EOF$"},
       {overrun + "-5", overrun + "-6", "+OK", "+OK"},
       "abcdefghijklmnopq",
       17,
       3},
      {"1", "B", {"$BUFFLEN$0000000021", "$EOF$"}, {"", "+OK"}, "", 0, 1},
      {"1", "B", {"$BUFFLEN$0000000025a$EOF$"}, {"+OK"}, "a", 6, 1},
      {"1", "B", {"$BUFFLEN$0000000030a$EOF$"}, {atEof + " 5"}, "a", 6, 1},
      {"", "B", {"abc", "", "de$EOF$"}, {"", "", atEof + "-10"}, "abcde", 10, 3},
      {"", "B", {"abc", "$EOF$"}, {"", "+OK"}, "abc", 3, 1},
      {"1", "B", {"abc", "de", "$EOF$"}, {overrun + "-3", overrun + "-5", "+OK"}, "abcde", 5, 2},
      // Headers that are none: too short, no number, beyond 32 bits.
      {"",
       "B",
       {"$BUFFLEN$00000029", "$BUFFLEN$00000x0029", "$BUFFLEN$2147483648", "$EOF$"},
       {"", "", "", "+OK"},
       "$BUFFLEN$00000029$BUFFLEN$00000x0029$BUFFLEN$2147483648",
       55,
       3},
      {"", "B", {"$BUFFLEN$-000000005", "$EOF$"}, {"", "+OK"}, "$BUFFLEN$-000000005", 19, 1},
  };
  for (const auto& row : rows) {
    World world;
    world.Connect();
    world.Chunks({"$VERSION$:" + row.Version, "$FILETYPE$:" + row.Type, "$FILE$:a.txt"});
    EXPECT_EQ(world.Chunk("$DATAHDR$ surplus"), "+OK");
    SCOPED_TRACE(testing::PrintToString(row.Chunks));
    Strings replies;
    for (const std::string& chunk : row.Chunks) replies.push_back(world.Chunk(chunk));
    EXPECT_EQ(replies, row.Replies);
    EXPECT_EQ(world.File("a.txt"), row.File);
    EXPECT_EQ(world.form.Session.TotalBytes, row.TotalBytes);
    EXPECT_EQ(world.form.Session.BlockCount, row.BlockCount);
    EXPECT_FALSE(world.form.Session.FileIsOpen);
    EXPECT_EQ(world.Text(Field::resu), "started task 1234");
    EXPECT_EQ(world.winsock.state, 2);
  }
}

TEST(Conversation, LogOfABinaryTransfer) {
  World world;
  CheckLog_Click(world.form, true);
  world.Connect();
  world.Chunks({"$VERSION$:2.0", "$FILE$:sample.txt", "$FILETYPE$:B", "$DATA$",
                "$BUFFLEN$0000000029abcdefghij", "$EOF$"});
  EXPECT_EQ(world.Text(Field::Satz),
            "$VERSION$:2.0\r\n$FILE$:sample.txt\r\n$FILETYPE$:B\r\n$DATA$\r\n"
            "Received Bytes:  10\r\nBlock  1:  29 Bytes\r\n+OK: Rest = 0\r\n"
            "File written with  10 Bytes\r\n");
}

TEST(Order, AcceptanceOfAPeer) {
  World world("[Hosts]\nDefault=*deny\n");
  world.Connect();
  EXPECT_EQ(world.journal, (Journal{"Close", "Resolve 10.0.0.7", "partner=10.0.0.7", "Accept 5",
                                    "dateiname=", "aktion=Connected", "kdo=", "resu=OK",
                                    "fext=", "kext=", "kprf=", "ftp=", "Satz="}));
  world.journal.clear();
  EXPECT_EQ(world.Chunk("$VERSION$:1"), "");
  EXPECT_EQ(world.journal,
            (Journal{"Close", "aktion=listening", "Listen", "resu=Hostaccess denied"}));
  EXPECT_EQ(world.Text(Field::partner), "10.0.0.7");
}

TEST(Order, WholeTransfer) {
  World world;
  world.Connect();
  world.journal.clear();
  world.Chunks({"$FILE$:a.txt", "$DATA$", "x", "$EOF$"});
  EXPECT_EQ(world.journal, (Journal{"resu=OK",
                                    "fext=(automatic) .txt",
                                    "kdo=view \"%1\"",
                                    "Send +OK",
                                    "resu=OK",
                                    "dateiname=/t/f$~.a.txt",
                                    "Kill /t/f$~.a.txt",
                                    "aktion=open textfile",
                                    "Open text /t/f$~.a.txt",
                                    "Send +OK",
                                    "resu=OK",
                                    "aktion=writing file",
                                    "Write",
                                    "Send +OK",
                                    "resu=OK",
                                    "Send +OK",
                                    "Close",
                                    "aktion=executing command",
                                    "CloseFile",
                                    "kdo=view \"/t/f$~.a.txt\"",
                                    "Satz+File written with  1 Bytes",
                                    "Shell view \"/t/f$~.a.txt\"",
                                    "resu=started task 1234",
                                    "Listen"}));
}

TEST(Order, EndsOfAConnection) {
  const struct {
    Strings Before;
    std::string Last;
    Journal Effects;
  } rows[] = {
      {{}, "$EOF$ x", {"resu=OK", "Close", "Listen", "aktion=listening", "partner="}},
      {{"$FILE$:a.unk"},
       "$DATA$",
       {"resu=OK", "Send -KDO", "resu=wrong command", "aktion=listening", "Close", "Listen"}},
      {{},
       "$EXT$:.unk",
       {"resu=OK", "fext=.unk", "resu=wrong extension", "kdo=", "aktion=EXT", "Send -EXT", "Close",
        "Listen"}},
      {{"$FILETYPE$:B", "$FILE$:a.txt", "$DATA$"},
       "x$EOF$",
       {"resu=OK", "aktion=writing file", "Write", "Send -Fehler: Buffer-length at EOF: -6",
        "Close", "aktion=executing command (B)", "CloseFile", "kdo=view \"/t/f$~.a.txt\"",
        "Satz+File written with  6 Bytes", "Shell view \"/t/f$~.a.txt\"", "resu=started task 1234",
        "Listen"}},
  };
  for (const auto& row : rows) {
    World world;
    world.Connect();
    world.Chunks(row.Before);
    world.journal.clear();
    world.Chunk(row.Last);
    EXPECT_EQ(world.journal, row.Effects);
  }
}

TEST(Order, PeerThatGoes) {
  World world;
  world.Connect();
  world.journal.clear();
  PeerClosed(world.form);
  EXPECT_EQ(world.journal, (Journal{"Close", "aktion=listening", "Listen"}));

  world.Connect();
  world.Chunks({"$FILE$:a.txt", "$DATA$", "x"});
  world.journal.clear();
  bool cancel = false;
  Error(world.form, 104, "reset", cancel);
  EXPECT_TRUE(cancel);
  EXPECT_EQ(world.journal, (Journal{"Satz+Error:  104 reset", "Close", "aktion=listening",
                                    "CloseFile", "Kill /t/f$~.*", "Listen"}));
  EXPECT_TRUE(world.form.Session.FileIsOpen && world.form.Session.InDataPhase);
  world.Connect();
  EXPECT_EQ(world.Chunk("$FILE$:b.txt"), "+OK");
}

TEST(Recovery, OpenMovesToAGeneratedName) {
  for (const std::string& name : Strings{"a.txt", "../a.txt", "/BS2/b/a.txt", {"a\0.txt", 6}}) {
    World world;
    world.Connect();
    world.Chunks({"$EXT$:.txt", "$FILE$:" + name});
    if (name == "a.txt") world.files.failOpen = {1};
    world.journal.clear();
    EXPECT_EQ(world.Chunks({"$DATA$", "x", "$EOF$"}), "+OK");
    ASSERT_EQ(world.files.files.size(), 1U);
    const auto& [path, content] = *world.files.files.begin();
    EXPECT_TRUE(path.starts_with("/t/f$~.temp") && path.ends_with(".tmp")) << path;
    EXPECT_EQ(content, "x\r\n");
    EXPECT_EQ(world.Text(Field::dateiname), path);
    // Nothing outside the directory was even deleted.
    EXPECT_EQ(std::ranges::count(world.journal, "Kill /t/f$~." + name), name == "a.txt" ? 1 : 0);
  }
}

TEST(Recovery, WriteMovesToAGeneratedName) {
  const struct {
    std::string Type;
    Strings Chunks, Replies;
    std::string NewFile;
    int TotalBytes, BlockCount;
    std::string Aktion;
  } rows[] = {
      {"T",
       {"x", "y", "z", "$EOF$"},
       {"+OK", "+OK", "+OK", "+OK"},
       "y\r\nz\r\n",
       3,
       3,
       "executing command"},
      {"T", {"x", "y$EOF$"}, {"+OK", "+OK"}, "y\r\n", 7, 2, "executing command"},
      {"B",
       {"$BUFFLEN$0000000020x", "$BUFFLEN$0000000020y", "$EOF$"},
       {"+OK", "+OK", "+OK"},
       "y",
       2,
       3,
       "executing command"},
      {"B",
       {"$BUFFLEN$0000000020x", "$BUFFLEN$0000000025y$EOF$"},
       {"+OK", "+OK"},
       "y",
       7,
       2,
       "executing command (B)"},
  };
  for (const auto& row : rows) {
    World world;
    world.Connect();
    world.Chunks({"$VERSION$:1", "$FILETYPE$:" + row.Type, "$FILE$:a.txt", "$DATA$"});
    world.files.failWrite = {2};
    Strings replies;
    for (const std::string& chunk : row.Chunks) replies.push_back(world.Chunk(chunk));
    SCOPED_TRACE(testing::PrintToString(row.Chunks));
    EXPECT_EQ(replies, row.Replies);
    const std::string name = world.form.Session.FileName;
    EXPECT_TRUE(name.starts_with("temp")) << name;
    EXPECT_EQ(world.File(name), row.NewFile);
    EXPECT_TRUE(world.File("a.txt").starts_with("x"));
    EXPECT_EQ(world.form.Session.TotalBytes, row.TotalBytes);
    EXPECT_EQ(world.form.Session.BlockCount, row.BlockCount);
    EXPECT_TRUE(std::ranges::count(world.journal, "aktion=" + row.Aktion) == 1);
    EXPECT_EQ(world.winsock.state, 2);
  }
}

TEST(Recovery, SecondFailureEndsTheConnection) {
  const struct {
    std::string Type;
    std::vector<int> FailOpen, FailWrite;
    std::string Error;
  } rows[] = {
      {"T", {1, 2}, {}, "Error:  13 Permission denied\r\n"},
      {"T", {}, {1, 2}, "Error:  28 No space left on device\r\n"},
      {"B", {2}, {1}, "Error:  13 Permission denied\r\n"},
      {"B", {}, {1, 2}, "Error:  28 No space left on device\r\n"},
  };
  for (const auto& row : rows) {
    World world;
    world.Connect();
    world.Chunks({"$VERSION$:1", "$FILETYPE$:" + row.Type, "$FILE$:a.txt"});
    world.files.failOpen = row.FailOpen;
    world.files.failWrite = row.FailWrite;
    std::string reply = world.Chunk("$DATA$");
    if (world.form.Session.FileIsOpen) reply = world.Chunk("$BUFFLEN$0000000020x$EOF$");
    EXPECT_EQ(reply, "");
    EXPECT_EQ(world.Text(Field::Satz), row.Error);
    EXPECT_TRUE(world.files.files.empty());
    EXPECT_EQ(world.winsock.state, 2);
  }
}

TEST(Recovery, GeneratedNamesRepeatFromStartToStart) {
  const auto names = [] {
    World world;
    Strings generated;
    for (int i = 0; i < 50; ++i) {
      world.Connect();
      world.Chunks({"$EXT$:.txt", "$DATA$", "$EOF$"});
      generated.push_back(world.form.Session.FileName);
    }
    return generated;
  };
  const Strings first = names();
  EXPECT_EQ(first, names());
  EXPECT_GT(std::set<std::string>(first.begin(), first.end()).size(), 40U);
  for (const std::string& name : first) {
    const int number = std::stoi(name.substr(4));
    EXPECT_EQ(name, "temp" + std::to_string(number) + ".tmp");
    EXPECT_TRUE(number >= 1 && number <= 1000000);
  }
}

TEST(StartViewer, FailedStartAndReceivedProgram) {
  World world("[Extensions]\nexe=x\ntxt=  view  \n");
  world.Connect();
  world.process.task.reset();
  world.Chunks({"$FILE$:a.txt", "$KDOEXT$:b \x15\x15", "$DATA$", "$EOF$"});
  EXPECT_EQ(world.Text(Field::resu), "started task ");
  EXPECT_EQ(world.Text(Field::kdo), "view /t/f$~.a.txt b \x15");

  world.Connect();
  world.journal.clear();
  world.Chunks({"$FILE$:p.exe", "$DATA$", "$EOF$"});
  const auto executable = std::ranges::find(world.journal, "Execute /t/f$~.p.exe");
  ASSERT_NE(executable, world.journal.end());
  EXPECT_EQ(executable[1], "Shell /t/f$~.p.exe");
}

TEST(Lifecycle, LoadInItsOrder) {
  World world;
  world.profile.ini.clear();
  world.form.OldWndProc = nullptr;
  Load(world.form);
  EXPECT_EQ(world.journal, (Journal{"Caption Quorbin Version 1.1.03", "Left 0 1485.5",
                                    "Left 1 2160.5", "Left 2 1485.5", "Label2 3", "WindowState 0",
                                    "Hidden", "Notify 0 hWnd 7 flags 7", "SetWindowProc 7",
                                    "Listen", "Kill /t/f$~.*", "aktion=listening"}));
  EXPECT_EQ(world.tray.last.szTip, "Quorbin      ");
  EXPECT_EQ(world.form.LinkHostCount, -1);
  for (const auto& [icon, hidden, tray] :
       {std::tuple{"1", true, false}, {"-5", true, false}, {"2", false, false}}) {
    World other(std::string("[Global]\nIcon=") + icon);
    EXPECT_EQ(other.window.visible, !hidden);
    EXPECT_EQ(static_cast<bool>(other.form.OldWndProc), tray);
  }
}

TEST(Lifecycle, RefusalsEndAtOnce) {
  World world;
  world.computer.previous = true;
  EXPECT_THROW(Load(world.form), Ended);
  EXPECT_EQ(world.journal,
            (Journal{"MsgBox Quorbin already running|48|Error while loadingQuorbin"}));

  World deaf;
  deaf.Connect();
  deaf.winsock.listenError = std::make_error_code(std::errc::address_in_use);
  try {
    PeerClosed(deaf.form);
    FAIL();
  } catch (const Ended& ended) {
    EXPECT_EQ(ended.status, 1);
  }
  EXPECT_EQ(deaf.journal.back(),
            "MsgBox Can't listen on port 9438: Address already in use|48|Error while "
            "loadingQuorbin");
}

TEST(Lifecycle, QueryUnloadInItsOrder) {
  World world;
  std::int16_t cancel = 1;
  QueryUnload(world.form, cancel);
  EXPECT_EQ(cancel, 0);
  EXPECT_EQ(world.journal, (Journal{"CloseControl", "Kill /t/f$~.*", "Close",
                                    "Notify 2 hWnd 7 flags 0", "SetWindowProc 7"}));
}

TEST(Windows, EventsOfTheMainWindow) {
  World world;
  for (const auto& [button, shift] : {std::pair{1, 2}, {1, 0}, {1, 3}, {1, 6}, {2, 2}}) {
    Form_MouseDown(world.form, static_cast<std::int16_t>(button), static_cast<std::int16_t>(shift));
  }
  Command1_Click(world.form);
  CommandParam_Click(world.form);
  EXPECT_EQ(world.journal, (Journal{"Show", "Show", "Edit /opt/q/quorbin.ini"}));

  for (const auto& [iconMode, hidden] : {std::pair{-1, true}, {0, true}, {2, false}, {3, true}}) {
    world.form.IconMode = static_cast<std::int16_t>(iconMode);
    world.window.visible = true;
    world.window.state = FormState::Normal;
    Form_Resize(world.form);
    EXPECT_TRUE(world.window.visible);
    world.window.state = FormState::Minimised;
    Form_Resize(world.form);
    EXPECT_EQ(world.window.visible, !hidden);
  }
}

TEST(Tray, RightPressTogglesTheMainWindow) {
  World world;
  const auto press = [&](std::uint32_t msg, std::uintptr_t id, std::intptr_t mouse) {
    world.journal.clear();
    EXPECT_EQ(world.tray.procedure(7, msg, id, mouse), 99);
    return world.journal;
  };
  const Journal shown = {"OldWndProc", "WindowState 0", "Visible", "BringToUser"};
  const Journal hidden = {"OldWndProc", "WindowState 1", "Hidden"};
  const Journal nothing = {"OldWndProc"};
  EXPECT_EQ(press(28, 42, 0x204), shown);
  EXPECT_EQ(press(28, 42, 0x205), nothing);
  EXPECT_EQ(press(28, 1, 0x204), nothing);
  EXPECT_EQ(press(29, 42, 0x204), nothing);
  EXPECT_EQ(press(28, 42, 0x204), hidden);
  EXPECT_EQ(press(28, 42, 0x204), shown);

  SetSubclass(world.form, 7, true);  // a second installation
  SetSubclass(world.form, 7, false);
  world.journal.clear();
  SetSubclass(world.form, 7, false);
  EXPECT_EQ(world.journal, Journal());
  EXPECT_EQ(press(28, 42, 0x204), nothing);
}

}  // namespace
}  // namespace quorbin::fakes
