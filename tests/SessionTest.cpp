// Whole conversations, event by event, on a platform in memory.

#include <gtest/gtest.h>

#include <tuple>

#include "Fakes.hpp"
#include "Windows.hpp"
#include "modulkorb.hpp"

namespace quorbin::fakes {
namespace {

using namespace std::string_literals;

TEST(Conversation, ControlMessages) {
  const std::tuple<std::string, std::string, Field, std::string> rows[] = {
      {"$VERSION$:2.0|$VERSION$:", "+OK1.1.03|+OK1.1.03|", Field::partner,
       "10.0.0.7 (Version 2.0) (Version )"},
      {"$FILETYPE$:Bxyz", "+OK|", Field::ftp, "binary"},
      {"$FILETYPE$:T", "+OK|", Field::ftp, "text"},
      {"$FILETYPE$:X|$filetype$:B|\x15|   | $EOF$", "-PARAM|-PARAM|-PARAM|-PARAM|-PARAM|",
       Field::resu, "wrong param"},
      {"$KDOEXT$:b \x15\x15", "+OK|", Field::kext, "b \x15"},
      {"$KDOEXT$:-z  \x15|$KDOEXT$:  ", "+OK|+OK|", Field::kext, "-z"},
      {"$KDOPRF$:-a  \x15|$KDOPRF$:", "+OK|+OK|", Field::kprf, "-a  "},
      {"$EXT$:.txt", "+OK|", Field::kdo, "view \"%1\""},
      {"$FILE$:x.bad\x15\x15|$FILE$:y.bad  ", "+OK|+OK|", Field::fext, ".txt"},
  };
  World world;
  world.Connect();
  for (const auto& [chunks, replies, shown, text] : rows) {
    EXPECT_EQ(world.Talk(chunks), replies) << chunks;
    EXPECT_EQ(world.Text(shown), text) << chunks;
  }
  EXPECT_EQ(world.form.Session.FileName, "y.bad");
  const std::string version = "$VERSION$:" + std::string(100000, 'x');
  for (int i = 0; i < 30; ++i) EXPECT_EQ(world.Chunk(version), "+OK1.1.03");
  EXPECT_LT(world.Text(Field::partner).size(), 200000U);
  for (const std::size_t length : {4095U, 4096U}) {  // then it takes no more
    ConnectionRequest(world.form, 5);
    const std::size_t around = std::string("10.0.0.7 (Version )").size();
    world.Chunk("$VERSION$:" + std::string(length - around, 'x'));
    ASSERT_EQ(world.Text(Field::partner).size(), length);
    world.Chunk("$VERSION$:2");
    EXPECT_EQ(world.Text(Field::partner).ends_with(" (Version 2)"), length < 4096);
  }
  CheckLog_Click(world.form, true);
  world.Chunk("nonsense  \x15");
  EXPECT_EQ(world.Text(Field::Satz), "nonsense\r\n");
}

// The replies, the files and the counters of a transfer, one of whose writes may fail.
TEST(Conversation, Transfers) {
  const std::string over = "-Fehler: Daten l\xE4nger als Pufferl\xE4nge: Rest=";
  const std::string atEof = "-Fehler: Buffer-length at EOF: ";
  const struct {
    std::string Version, Type;
    int FailWrite;
    std::string Chunks, Replies, Contents;
    int TotalBytes, BlockCount;
  } rows[] = {
      {"", "T", 0, "AB|CDEOF$|EF$EOF$", "+OK|+OK|+OK|", "AB\r\nCDEOF$\r\nEF\r\n|", 15, 3},
      {"", "T", 0, "AB|$EOF$xyz", "+OK|+OK|", "AB\r\n|", 2, 1},
      {"", "T", 0, "$EOF$", "+OK|", "|", 0, 0},
      {"1", "T", 0, "xy$EOF$z|$FILETYPE$:B \x15|$BUFFLEN$0000000029|$EOF$", "+OK|+OK|+OK|+OK|",
       "xy$EOF$z\r\n$FILETYPE$:B \x15\r\n$BUFFLEN$0000000029\r\n|", 41, 3},
      {"1", "T", 2, "x|y|z|$EOF$", "+OK|+OK|+OK|+OK|", "x\r\n|y\r\nz\r\n|", 2, 3},
      {"1", "T", 2, "x|y$EOF$", "+OK|+OK|", "x\r\n|y\r\n|", 6, 2},
      {"1", "B", 0, "$BUFFLEN$        29abcdef|ghij|$EOF$", "|+OK|+OK|", "abcdefghij|", 10, 2},
      {"1", "B", 0, "$BUFFLEN$0000000022ab|c|$EOF$", "|+OK|+OK|", "abc|", 3, 2},
      {"1", "B", 0, "abc|$BUFFLEN$0000000020de|f|$BUFFLEN$0000000020g|$EOF$",
       over + "-3|" + over + "-1|" + over + "-2|+OK|+OK|", "abcdefg|", 7, 4},
      {"1", "B", 0, "$BUFFLEN$0000000021|$EOF$", "|+OK|", "|", 0, 1},
      {"1", "B", 0, "$BUFFLEN$0000000025a$EOF$", "+OK|", "a|", 6, 1},
      {"1", "B", 0, "$BUFFLEN$0000000030a$EOF$", atEof + " 5|", "a|", 6, 1},
      {"1", "B", 2, "$BUFFLEN$0000000020x|yz|$EOF$", "+OK|" + over + "-2|+OK|", "x|yz|", 2, 3},
      {"1", "B", 2, "$BUFFLEN$0000000020x|y$EOF$", "+OK|" + atEof + "-6|", "x|y|", 6, 2},
      {"1", "B", 2, "$BUFFLEN$0000000020x|$BUFFLEN$0000000021yz|$EOF$", "+OK|+OK|+OK|", "x|yz|", 2,
       3},
      {"", "B", 0, "abc||de$EOF$", "||" + atEof + "-10|", "abcde|", 10, 3},
      // The length may have a sign, and blanks around it.
      {"1", "B", 0, "$BUFFLEN$-000000005|$BUFFLEN$+000000029abcdefghij|$BUFFLEN$  +20     x|$EOF$",
       over + "-24|+OK|+OK|+OK|", "abcdefghijx|", 11, 3},
      {"1", "B", 0, "$BUFFLEN$-000000000a|$EOF$", over + "-20|+OK|", "a|", 1, 1},
      // Headers that are none: too short, no number, beyond 32 bits, a blank after the sign.
      {"", "B", 0, "$BUFFLEN$00000029|$BUFFLEN$00000x0029|$EOF$", "||+OK|",
       "$BUFFLEN$00000029$BUFFLEN$00000x0029|", 36, 2},
      {"", "B", 0, "$BUFFLEN$2147483648|$BUFFLEN$+-00000005|$BUFFLEN$- 00000005|$EOF$", "|||+OK|",
       "$BUFFLEN$2147483648$BUFFLEN$+-00000005$BUFFLEN$- 00000005|", 57, 3},
  };
  for (const auto& row : rows) {
    World world;
    world.Connect();
    world.Talk("$VERSION$:" + row.Version + "|$FILETYPE$:B|$FILETYPE$:" + row.Type);
    world.Talk("$FILE$:a.txt|$DATAHDR$ surplus");
    world.files.failWrite = {row.FailWrite};
    SCOPED_TRACE(row.Chunks);
    EXPECT_EQ(world.Talk(row.Chunks), row.Replies);
    std::string contents;
    for (const auto& [path, content] : world.files.files) contents += content + "|";
    EXPECT_EQ(contents, row.Contents);
    EXPECT_EQ(world.form.Session.TotalBytes, row.TotalBytes);
    EXPECT_EQ(world.form.Session.BlockCount, row.BlockCount);
    EXPECT_FALSE(world.form.Session.FileIsOpen);
  }
}

TEST(Order, AcceptanceOfAPeer) {
  World world("[Hosts]\nDefault=*deny\nother.host=*allow\n");
  world.Connect();
  world.Chunk("$VERSION$:1");
  EXPECT_EQ(world.Effects(),
            "Close; Resolve 10.0.0.7; partner=10.0.0.7; Accept 5; dateiname=; aktion=Connected; "
            "kdo=; resu=OK; fext=; kext=; kprf=; ftp=; Satz=; "
            "Close; aktion=listening; Listen; resu=Hostaccess denied; ");
}

// A name that is a key of the section for other reasons is no entry, whatever the section holds.
TEST(Policy, ANameThatIsReservedHasNoEntry) {
  for (const char* const name : {"host_allow", "DEFAULT", "*local", "10.0.0.8", "fd00::1"}) {
    World world(
        "[Hosts]\nDefault=*deny\nhost_allow=1\n*local=*allow\n10.0.0.8=*allow\n"
        "fd00::1=*allow\nother.host=*allow\n");
    world.resolver.name = name;
    world.Connect();
    EXPECT_FALSE(world.form.Session.HostAllowed) << name;
  }
}

// What chunks do, after others of the same connection, while opens and writes fail.
TEST(Order, EffectsOfChunks) {
  const std::string text = "$FILE$:a.txt|$KDOEXT$:\\\"z\\\"|$DATA$";
  const std::string writing = "resu=OK; aktion=writing file; ";
  const std::string moved = "CloseFile; dateiname=/t/f$~.temp814724.tmp; aktion=open ";
  const std::string lost = "Close; aktion=listening; CloseFile; LetTake ; Kill /t/f$~.*; Listen; ";
  const std::string viewed =
      "kdo=view \"/t/f$~.a.txt\" \"z\"; Satz+File written with  6 Bytes; "
      "Shell view \"/t/f$~.a.txt\" \"z\"; resu=started task 1234; Listen; ";
  const struct {
    std::string Before, Chunks;
    int FailOpens, FailWrites;  // that many of the next ones
    std::string Effects;
  } rows[] = {
      {"", "$EOF$ x", 0, 0, "resu=OK; Close; Listen; aktion=listening; partner=; "},
      {"$FILE$:a.unk", "$DATA$", 0, 0,
       "resu=OK; Send -KDO; resu=wrong command; aktion=listening; Close; Listen; "},
      {"", "$EXT$:.unk", 0, 0,
       "resu=OK; fext=.unk; resu=wrong extension; kdo=; aktion=EXT; Send -EXT; Close; Listen; "},
      {"$EXT$:.txt", "$DATA$", 0, 0,
       "resu=OK; dateiname=/t/f$~.temp814724.tmp; LetTake /t/f$~.temp814724.tmp; Kill "
       "/t/f$~.temp814724.tmp; "
       "aktion=open textfile; Open text /t/f$~.temp814724.tmp; Send +OK; "},
      {text, "x12345|$EOF$", 0, 0,
       writing +
           "Write; Send +OK; resu=OK; Send +OK; Close; aktion=executing command; CloseFile; " +
           viewed},
      {"$FILETYPE$:B|" + text, "x$EOF$", 0, 0,
       writing +
           "Write; Send -Fehler: Buffer-length at EOF: -6; Close; CloseFile; "
           "aktion=executing command (B); " +
           viewed},
      // A failure moves the transfer; a second one ends it.
      {text, "x$EOF$", 0, 2,
       writing + moved +
           "textfile; Open text /t/f$~.temp814724.tmp; aktion=writing file; "
           "Satz+Error:  28 No space left on device; " +
           lost},
      {"$VERSION$:1|$FILETYPE$:B|" + text, "x", 1, 1,
       writing + "aktion=writing file (B); " + moved +
           "binary file; "
           "Satz+Error:  13 Permission denied; " +
           lost},
  };
  for (const auto& row : rows) {
    World world;
    world.Connect();
    world.Talk(row.Before);
    world.Effects();
    for (int turn = 1; turn <= row.FailOpens; ++turn) world.files.failOpen.push_back(turn);
    for (int turn = 1; turn <= row.FailWrites; ++turn) world.files.failWrite.push_back(turn);
    world.Talk(row.Chunks);
    EXPECT_EQ(world.Effects(), row.Effects);
  }
}

// The execute bit goes to the file if it is the program of the command line, and to no other.
TEST(Order, OnlyTheProgramOfTheLineIsMadeExecutable) {
  const std::tuple<std::string, std::string, bool> rows[] = {
      {"view \"%1\"", "$VERSION$:1", false},
      {"\"%1\"", "$VERSION$:1", true},
      {"%1", "$KDOEXT$:x", true},
      {"\"%1\"", "$KDOPRF$:  |$KDOEXT$: x", true},
      {"\"%1\"", "$KDOPRF$: |$KDOEXT$:x", false},  // the program has an x at its end
      {"\"%1\"", "$KDOPRF$:\"", true},
      {"%1", "$KDOPRF$:/bin/sh ", false},
  };
  for (const auto& [command, chunks, executable] : rows) {
    World world("[Extensions]\nquo=" + command + "\n");
    world.Connect();
    world.Talk("$EXT$:.quo|$FILE$:a|" + chunks + "|$DATA$|$EOF$");
    EXPECT_EQ(world.Effects().find("Execute /t/f$~.a;") != std::string::npos, executable) << chunks;
  }
}

// A web page can make a browser send a request here, and choose all of it but its beginning.
TEST(Order, RequestOfTheWeb) {
  const std::string letters(1024, '$');
  const std::vector<std::string> requests = {"GET / HTTP/1.1\r\n",
                                             "OPTIONS *",
                                             "FOO /" + letters + letters,
                                             "$FOO$ /",
                                             "x a+b://",
                                             "a!b /",
                                             letters + " /",
                                             letters + "$"};
  const std::vector<std::string> others = {"POST",    " GET /", "(x /",         "POST\t/",
                                           "POST  /", "GET a",  "GET ://",      "GET a/",
                                           letters,   "G/E /",  letters + "\n", "$FILE|POST /"};
  const std::string unknown = "resu=OK; resu=wrong param; Send -PARAM; ";
  const std::string closed = unknown + "aktion=listening; Close; Listen; ";
  for (const auto& [all, effects] : {std::pair(requests, closed), std::pair(others, unknown)}) {
    for (const std::string& chunks : all) {
      World world;
      world.Connect();
      world.Talk(chunks);
      EXPECT_TRUE(world.Effects().ends_with(effects)) << chunks;
    }
  }
  World world;
  world.Connect();
  EXPECT_EQ(world.Chunk("$DATA$ / HTTP/1.1"), "-KDO");  // a known message
}

// A conversation of chunks and of events, which are in parentheses.
void Play(World& world, const std::string& steps) {
  std::istringstream rest(steps);
  for (std::string step; std::getline(rest, step, '|');) {
    bool cancelDisplay = false;
    if (step == "(full)") {
      world.files.failWrite = {1};
    } else if (step == "(no open)") {
      world.files.failOpen = {1, 2};
    } else if (step == "(closed)") {
      PeerClosed(world.form);
    } else if (step == "(error)") {
      Error(world.form, 104, "reset", cancelDisplay);
      EXPECT_TRUE(cancelDisplay);
    } else if (step == "(lost)") {
      world.files.lost = std::make_error_code(std::errc::io_error);
    } else {
      world.Chunk(step);
    }
  }
}

// What an administrator reads.
TEST(Record, Sentence) {
  const std::pair<std::string, std::string> rows[] = {
      {"x", "refused by 10.0.0.7=*deny: Hostaccess denied"},
      {"$FILE$:a.txt|$DATA$|xyz|$EOF$",
       "admitted by Default=*allow: a.txt, 3 bytes, viewer started (task 1234)"},
      {"$FILE$:a.txt|$DATA$|lost|(full)|xyz|(lost)|$EOF$",
       "admitted by Default=*allow: temp814724.tmp, moved there by error 28 No space left on "
       "device, 3 bytes, viewer started (task 1234), error 5 Input/output error"},
  };
  for (const auto& [steps, sentence] : rows) {
    const std::string hosts = steps == "x" ? "[Hosts]\n10.0.0.7=*deny\n" : "";
    World world(hosts + "[Extensions]\ntxt=view \"%1\"\n");
    world.Connect();
    Play(world, steps);
    ASSERT_EQ(world.audit.entries.size(), 1U);
    const JournalEntry& entry = world.audit.entries.front();
    const JournalEntry::Field& peer = entry.Fields.front();
    const JournalEntry::Field& duration = entry.Fields.back();
    EXPECT_EQ(std::string(peer.Name) + "=" + peer.Value, "PEER=10.0.0.7");
    EXPECT_EQ(duration.Name, "DURATION_MS");
    EXPECT_EQ(entry.Message, "10.0.0.7 " + sentence + ", " + duration.Value + " ms");
  }
}

// The fields of the one entry that a connection leaves, but for its peer and duration.
TEST(Record, OneEntryForEachConnection) {
  const std::string admitted = "VERDICT=admitted DECIDED_BY=Default=*allow ";
  const std::string text = "FILE=a.txt EXTENSION=.txt ";
  const std::string viewer = "COMMAND=view \"/t/f$~.a.txt\" TASK=1234 RESULT=viewer started ";
  const struct {
    std::string Hosts, Chunks, Fields;
    bool Warning;
  } rows[] = {
      {"10.0.0.7=*deny", "x", "VERDICT=refused DECIDED_BY=10.0.0.7=*deny RESULT=Hostaccess denied ",
       true},
      {"", "$VERSION$:2|$EOF$", admitted + "PEER_VERSION=2 RESULT=given up by the sender ", false},
      {"", "$EXT$:.unk", admitted + "EXTENSION=.unk RESULT=wrong extension ", true},
      {"", "$FILE$:a.unk|$DATA$", admitted + "FILE=a.unk EXTENSION=.unk RESULT=wrong extension ",
       true},
      {"", "POST / HTTP/1.1", admitted + "RESULT=request of a web page ", true},
      {"10.0.0.7=*yes", "$FILE$:a.txt|$DATA$|xyz|$EOF$",
       "VERDICT=admitted DECIDED_BY=10.0.0.7=*yes " + text + "BYTES=3 " + viewer, false},
      {"", "$FILE$:a.txt|$FILETYPE$:B|$DATA$|$BUFFLEN$0000000030xyz$EOF$",
       admitted + text + "BYTES=8 " + viewer, true},
      {"", "$FILE$:a.txt|$DATA$|xyz|(closed)",
       admitted + text + "BYTES=3 RESULT=transfer broken off ", true},
      {"", "$FILE$:a.txt|$DATA$|lost|(full)|xyz|$EOF$",
       admitted + "FILE=temp814724.tmp MOVED_FROM=a.txt MOVED_BY=28 No space left on device " +
           "EXTENSION=.txt BYTES=3 COMMAND=view \"/t/f$~.temp814724.tmp\" TASK=1234 "
           "RESULT=viewer started ",
       true},
      {"", "$FILE$:a.txt|(no open)|$DATA$",
       admitted + "FILE=temp814724.tmp MOVED_FROM=a.txt MOVED_BY=13 Permission denied " +
           "EXTENSION=.txt RESULT=transfer broken off ERROR=13 Permission denied ",
       true},
      {"", "(closed)", admitted + "RESULT=closed by the peer ", false},
      {"", "(error)", admitted + "RESULT=closed by the peer ERROR=104 reset ", true},
      {"", "$FILE$:a.txt|$DATA$|xyz|(lost)|$EOF$",
       admitted + text + "BYTES=3 " + viewer + "ERROR=5 Input/output error ", true},
  };
  for (const auto& row : rows) {
    World world("[Extensions]\ntxt=view \"%1\"\n[Hosts]\n" + row.Hosts);
    world.Connect();
    Play(world, row.Chunks);
    // An error of the listener ends no connection.
    PeerClosed(world.form);
    ASSERT_EQ(world.audit.entries.size(), 1U) << row.Chunks;
    const JournalEntry& entry = world.audit.entries.front();
    std::string fields;
    for (const JournalEntry::Field& field : entry.Fields) {
      if (field.Name == "PEER" || field.Name == "DURATION_MS") continue;
      fields += std::string(field.Name) + "=" + field.Value + " ";
    }
    EXPECT_EQ(fields, row.Fields) << row.Chunks;
    EXPECT_EQ(entry.Warning, row.Warning) << row.Chunks;
  }
}

TEST(Order, StartAndEnd) {
  const std::pair<const char*, std::string> rows[] = {
      {"-5", "State 0; Hidden; "},
      {"0", "State 0; Hidden; AddIcon Quorbin      ; "},
      {"1", "State 0; Hidden; "},
      {"2", ""},
  };
  for (const auto& [iconMode, shown] : rows) {
    World world("[Global]\nIcon="s + iconMode);
    Load(world.form);
    EXPECT_EQ(world.Effects(),
              "Caption Quorbin Version 1.1.03; Left 0 2320.5; Left 1 2320; Left 2 2319.5; "
              "Label2 3; " +
                  shown + "Listen; Kill /t/f$~.*; aktion=listening; ");
    std::int16_t cancel = 1;
    QueryUnload(world.form, cancel);
    EXPECT_EQ(cancel, 0);
    EXPECT_EQ(world.Effects(), "CloseControl; Kill /t/f$~.*; Close; RemoveIcon; ");
  }
}

// The display may go, or the session end, while the message of a failed start is on the screen.
TEST(Order, AFailedStartDeletesNothing) {
  const std::tuple<bool, std::errc, std::string> rows[] = {
      {true, {}, ""},
      {false, std::errc::address_in_use, ""},
      {false, {}, "[Global]\nListen=nowhere\n"},
  };
  for (const auto& [previous, taken, ini] : rows) {
    World world{World::NotStarted()};
    world.profile.ini = ini;
    world.computer.previous = previous;
    if (taken != std::errc()) world.winsock.taken = std::make_error_code(taken);
    EXPECT_THROW(Load(world.form), Ended);
    EXPECT_TRUE(world.Effects().ends_with("End 1; "));
    std::int16_t cancel = 1;
    QueryUnload(world.form, cancel);
    EXPECT_EQ(cancel, 0);
    EXPECT_EQ(world.Effects(), "");
  }
}

TEST(Tray, RightPressTogglesTheMainWindow) {
  World world;
  TrayIcon_RightPress(world.form);
  EXPECT_EQ(world.Effects(), "State 0; Visible; BringToUser; ");
  TrayIcon_RightPress(world.form);
  EXPECT_EQ(world.Effects(), "State 1; Hidden; ");
}

// The window that is minimised hides behind the icon, and stays where there is none.
TEST(Tray, WithoutOneTheMainWindowStaysInReach) {
  World world;
  Form_Resize(world.form);
  EXPECT_EQ(world.Effects(), "Hidden; ");
  TrayIcon_Missing(world.form);
  EXPECT_EQ(world.Effects(), "State 1; Visible; ");
  Form_Resize(world.form);
  EXPECT_EQ(world.Effects(), "");
  TrayIcon_RightPress(world.form);  // a tray has come
  world.Effects();
  Form_Resize(world.form);
  EXPECT_EQ(world.Effects(), "Hidden; ");
}

}  // namespace
}  // namespace quorbin::fakes
