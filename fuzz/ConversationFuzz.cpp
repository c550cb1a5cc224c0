// A whole conversation on the platform in memory. Each line of the input is one event: "!c" a new
// peer, "!x" its close, "!e" a socket error, "!l" the tick of the log, "!d" a refused host from
// here on, "!o" and "!w" with a digit an open or a write that will fail; every other line is a
// chunk. A second reckoning of files and counters is compared with it.

#include <algorithm>
#include <cctype>
#include <regex>

#include "Allgemein.hpp"
#include "Fakes.hpp"
#include "Protocol.hpp"
#include "Require.hpp"
#include "Windows.hpp"

using namespace quorbin;
using fuzz::Require;

namespace {

// What must be in the open file and in the counters.
struct Reckoning {
  std::string Path;
  std::string Content;
  std::int64_t Total = 0;
  std::int64_t Left = 0;
  std::int64_t Blocks = 0;
  bool First = true;  // no chunk has come on this connection
};

std::optional<std::int64_t> HeaderLength(const std::string& chunk) {
  static const std::regex header("^\\$BUFFLEN\\$ *([+-]?[0-9]+) *$");
  std::smatch parts;
  const std::string head = chunk.substr(0, 19);
  if (head.size() < 19 || !std::regex_match(head, parts, header)) return {};
  const std::int64_t length = std::stoll(parts[1]);
  if (length > 2147483647) return {};
  return length;
}

bool IsWebRequest(const std::string& chunk) {
  static const std::regex message(
      "^(\\$VERSION\\$:|\\$EOF\\$|\\$DATAHDR\\$|\\$DATA\\$|\\$FILE\\$:|\\$EXT\\$:|"
      "\\$FILETYPE\\$:[BT]|\\$KDOEXT\\$:|\\$KDOPRF\\$:)");
  if (std::regex_search(chunk.substr(0, 12), message)) return false;
  const auto isLetter = [](unsigned char c) {
    return c < 0x80 &&
           (std::isalnum(c) != 0 ||
            (c > ' ' && c < 0x7F &&
             std::string("\"(),/:;<=>?@[\\]{}").find(static_cast<char>(c)) == std::string::npos));
  };
  const auto method = std::ranges::find_if_not(chunk, isLetter) - chunk.begin();
  if (method > 1024) return true;
  if (method == 0 || chunk.substr(static_cast<std::size_t>(method), 1) != " ") return false;
  const std::string target = chunk.substr(static_cast<std::size_t>(method) + 1);
  const auto isOfScheme = [](unsigned char c) {
    return c < 0x80 && (std::isalnum(c) != 0 || c == '+' || c == '-' || c == '.');
  };
  const auto scheme = std::ranges::find_if_not(target, isOfScheme) - target.begin();
  return target.starts_with('/') || target.starts_with('*') ||
         (scheme > 0 && target.compare(static_cast<std::size_t>(scheme), 3, "://") == 0);
}

bool IsKnown(const std::string& reply) {
  for (const std::string_view exact : {"+OK", "+OK1.1.03", "-PARAM", "-EXT", "-KDO"}) {
    if (reply == exact) return true;
  }
  return reply.starts_with(Reply::BufferOverrun) || reply.starts_with(Reply::BufferAtEof);
}

std::ptrdiff_t Place(const fakes::Journal& journal, std::string_view beginning) {
  const auto found =
      std::ranges::find_if(journal, [&](const auto& e) { return e.starts_with(beginning); });
  return found == journal.end() ? -1 : found - journal.begin();
}

class Conversation {
 public:
  Conversation() : world_("[Extensions]\ntxt=view \"%1\"\nexe=*deny\n[Hosts]\nDefault=*allow\n") {}

  void Event(std::string_view line) {
    const bool hadFile = world_.winsock.state == 7 && Session().FileIsOpen;
    world_.journal.clear();
    if (line == "!c") {
      Connect();
    } else if (line == "!x") {
      PeerClosed(world_.form);
      if (hadFile) Require(world_.files.files.empty(), "a broken transfer leaves nothing", line);
    } else if (line == "!e") {
      bool cancel = false;
      Error(world_.form, 104, "reset", cancel);
      Require(cancel, "no message box", line);
    } else if (line == "!l") {
      CheckLog_Click(world_.form, Session().LogLevel == 1);
    } else if (line == "!d") {
      world_.profile.ini += "10.0.0.7=*deny\n";
    } else if (line.size() == 3 && line.starts_with("!o")) {
      world_.files.failOpen.push_back(line[2] - '0');
    } else if (line.size() == 3 && line.starts_with("!w")) {
      world_.files.failWrite.push_back(line[2] - '0');
    } else {
      if (world_.winsock.state != 7) Connect();
      Chunk(std::string(line));
    }
    Check(line);
  }

 private:
  TransferSession& Session() { return world_.form.Session; }

  void Connect() {
    if (world_.winsock.state == 7) return;  // there is no listener during a connection
    world_.Connect();
    reckoning_ = {};
  }

  void Chunk(const std::string& chunk) {
    const TransferSession before = Session();
    const std::string path = world_.files.open;
    const std::size_t files = world_.files.files.size();
    world_.Chunk(chunk);
    const fakes::Journal& journal = world_.journal;
    const auto& replies = world_.winsock.replies;
    Require(replies.size() <= 1, "one reply to a chunk at most", chunk);
    Require(replies.empty() || IsKnown(replies[0]), "a known reply", chunk);
    if (!before.HostAllowed) {
      Require(replies.empty() && world_.files.files.size() == files && world_.winsock.state == 2,
              "a refused peer gets nothing", chunk);
      return;
    }
    const bool first = std::exchange(reckoning_.First, false);
    if (first && IsWebRequest(chunk)) {
      Require(replies == std::vector<std::string>{"-PARAM"} && world_.winsock.state == 2 &&
                  world_.files.files.size() == files,
              "a request of the web ends the connection", chunk);
      return;
    }
    const bool positive = !replies.empty() && replies[0].starts_with('+');
    const bool viewed = Place(journal, "Shell ") >= 0;
    if (!before.InDataPhase) {
      Require(!viewed, "no viewer without data", chunk);
      if (Session().InDataPhase) {
        Require(positive, "the data phase begins with a positive reply", chunk);
        reckoning_.Path = world_.files.open;
        reckoning_.Content.clear();
        const std::string& name = before.FileName;
        const bool usable = !name.empty() && name.find('"') == name.npos && name.back() != '\\';
        Require(usable || Session().FileName != name, "no name that splits an argument", name);
      } else if (world_.winsock.state == 2) {
        Require(!positive, "no positive reply to what has failed", chunk);
      }
      return;
    }
    if (viewed) {
      const auto closed = std::ranges::find(journal, "Close");
      const auto fileClosed = std::find(closed, journal.end(), "CloseFile");
      const auto shell = journal.begin() + Place(journal, "Shell ");
      Require(journal.begin() + Place(journal, "Send ") < closed && fileClosed < shell &&
                  std::find(shell, journal.end(), "Listen") != journal.end(),
              "reply, connection, file, viewer, listener", chunk);
    }
    Reckon(chunk, before, path, viewed);
    if (world_.winsock.state == 2 && !viewed) {
      Require(replies.empty() && world_.files.files.empty(), "a lost file is not acknowledged",
              chunk);
    }
  }

  void Reckon(const std::string& chunk, const TransferSession& before, const std::string& path,
              bool viewed) {
    if (chunk.starts_with("$EOF$")) {
      Require(viewed, "the end starts the viewer", chunk);
      return;
    }
    const auto length = static_cast<std::int64_t>(chunk.size());
    std::string_view content = chunk;
    std::int64_t counted = length;
    if (before.IsBinary) {
      if (const std::optional<std::int64_t> header = HeaderLength(chunk)) {
        reckoning_.Left = *header;
        counted -= 19;
        content.remove_prefix(19);
      }
      reckoning_.Left -= length;
    }
    const bool last = content.ends_with("$EOF$");
    if (last) content.remove_suffix(5);
    const std::string opened =
        world_.files.open.empty() ? "/t/f$~." + Session().FileName : world_.files.open;
    const bool moved = Place(world_.journal, "Open ") >= 0;
    Require(moved || opened == path || world_.files.files.empty(), "one file", chunk);
    ++reckoning_.Blocks;
    if (moved) {
      if (before.IsBinary && !last) ++reckoning_.Blocks;
      reckoning_.Path = opened;
      reckoning_.Content.clear();
      reckoning_.Total = 0;
    }
    reckoning_.Total += counted;
    reckoning_.Content += content;
    if (!before.IsBinary) reckoning_.Content += "\r\n";
    if (viewed || world_.winsock.state == 7) {
      Require(viewed == last, "the end marker ends", chunk);
      // A file that existed under a generated name is not cut.
      Require(world_.files.files.at(reckoning_.Path).ends_with(reckoning_.Content),
              "what was acknowledged is in the file", chunk);
      Require(Session().TotalBytes == reckoning_.Total && Session().BlockCount == reckoning_.Blocks,
              "counted right", chunk);
      Require(!before.IsBinary || Session().BufLenLeft == reckoning_.Left, "the buffer's rest",
              chunk);
    }
  }

  void Check(std::string_view line) {
    const int state = world_.winsock.state;
    Require(state == 2 || state == 7, "listening or connected", line);
    if (state == 7) {
      Require(Session().FileIsOpen == Session().InDataPhase,
              "a file is open in the data phase alone", line);
      Require(Session().FileIsOpen == !world_.files.open.empty(),
              "the session knows of the open file", line);
    } else {
      Require(world_.files.open.empty(), "no file without a connection", line);
    }
    for (const auto& [path, content] : world_.files.files) {
      Require(path.starts_with("/t/f$~."), "in the place of received files", path);
      Require(path.find('/', 3) == path.npos && path.find('\0') == path.npos, "no path", path);
    }
    for (const std::string& entry : world_.journal) {
      if (!entry.starts_with("Kill ")) continue;
      Require(entry.starts_with("Kill /t/f$~.") && entry.find('/', 8) == entry.npos,
              "deletes only received files", entry);
    }
  }

  fakes::World world_;
  Reckoning reckoning_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view lines = fuzz::Input(data, size);
  Conversation conversation;
  while (!lines.empty()) conversation.Event(fuzz::TakeLine(lines));
  return 0;
}
