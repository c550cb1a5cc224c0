#include "LinkServer.hpp"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <iterator>
#include <optional>
#include <system_error>

#include "LinkProtocol.hpp"
#include "LocalSocket.hpp"
#include "Report.hpp"

namespace quorbin {

using namespace LinkProtocol;

namespace {

constexpr int Backlog = 16;

// With unread bytes at the close, the client would get a reset after its last answer.
void Drain(int peer) {
  std::array<char, MaxLine> bytes;
  for (int count = 0; count < 16 && ::recv(peer, bytes.data(), bytes.size(), 0) > 0; ++count) {
  }
}

}  // namespace

LinkServer::LinkServer(EventLoop& loop, const InstanceDir& directory)
    : loop_(loop), directory_(directory) {}

void LinkServer::SetLinkMode(int mode) {
  if (mode != 0) {
    Publish();
    return;
  }
  if (!listener_) return;
  loop_.Unwatch(listener_.Get());
  ::unlinkat(directory_.Descriptor(), SocketName.data(), 0);
  listener_.Reset();
  for (auto client = clients_.begin(); client != clients_.end();) {
    const auto next = std::next(client);
    if (&*client != served_) Drop(client);
    client = next;
  }
}

void LinkServer::Publish() {
  if (listener_ || !directory_.Claimed()) return;
  if (const std::error_code error =
          ListenInDirectory(directory_.Descriptor(), SocketName, Backlog, listener_)) {
    Report("no link channel: " + error.message());
    return;
  }
  loop_.Watch(listener_.Get(), EventLoop::Readable, [this](unsigned) { ClientArrives(); });
}

void LinkServer::ClientArrives() {
  // Room is made before the new client is accepted: without a descriptor for it, its request would
  // be reported endlessly.
  if (clients_.size() == MaxClients) Drop(clients_.begin());
  Fd peer(::accept4(listener_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!peer && (errno == EMFILE || errno == ENFILE) && !clients_.empty()) {
    Drop(clients_.begin());
    peer.Reset(::accept4(listener_.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  }
  if (!peer && (errno == EMFILE || errno == ENFILE)) {
    // There is none even with all clients dropped. Publishing again rejects the request, which
    // would be reported endlessly, and takes no further descriptor.
    SetLinkMode(0);
    SetLinkMode(1);
    return;
  }
  if (!peer || !IsSameUser(peer.Get())) return;
  clients_.push_back({std::move(peer), {}, {}});
  WatchClient(std::prev(clients_.end()));
}

void LinkServer::WatchClient(ClientPlace client) {
  loop_.Watch(client->Connection.Get(),
              EventLoop::Readable | (client->Answers.Empty() ? 0U : EventLoop::Writable),
              [this, client](unsigned) { ClientReady(client); });
}

void LinkServer::ClientReady(ClientPlace client) {
  const int peer = client->Connection.Get();
  const bool waited = !client->Answers.Empty();
  if (waited && client->Answers.Flush(peer) == SendQueue::Result::Failed) {
    Drop(client);
    return;
  }
  std::array<char, MaxLine> bytes;
  const ssize_t count = ::recv(peer, bytes.data(), bytes.size(), 0);
  if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
    Drop(client);
    return;
  }
  if (count > 0) {
    clients_.splice(clients_.end(), clients_, client);
    client->Received.append(bytes.data(), static_cast<std::size_t>(count));
    if (!ServeLines(client)) {
      Drain(peer);
      Drop(client);
      return;
    }
  }
  if (waited || !client->Answers.Empty()) WatchClient(client);
}

// Executes the complete lines received so far. False if the client is to be dropped.
bool LinkServer::ServeLines(ClientPlace client) {
  std::string& received = client->Received;
  // Sent in one piece: the system buffers only a few small ones for a client that reads late.
  std::string answers;
  std::size_t start = 0;
  bool tooLong = false;
  while (listener_ && !tooLong) {
    const std::size_t lineEnd = received.find('\n', start);
    const std::size_t length = (lineEnd == received.npos ? received.size() : lineEnd) - start;
    tooLong = length > MaxLine;
    if (lineEnd == received.npos && !tooLong) break;
    served_ = &*client;
    answers +=
        tooLong ? std::string(Refused) : Answer(std::string_view(received).substr(start, length));
    answers += '\n';
    served_ = nullptr;
    start = lineEnd + 1;
  }
  received.erase(0, start);
  const auto result = client->Answers.Send(client->Connection.Get(), answers);
  // Without a listener, a line has withdrawn the topic.
  return result != SendQueue::Result::Failed && !tooLong && listener_;
}

std::string LinkServer::Answer(std::string_view line) {
  const std::size_t blank = line.find(' ');
  if (blank == line.npos) return std::string(Refused);
  const std::string_view verb = line.substr(0, blank);
  const std::string text(line.substr(blank + 1));
  if (verb == Execute) {
    std::int16_t Cancel = 1;
    events_.LinkExecute(text, Cancel);
    return std::string(Cancel == 0 ? Accepted : Refused);
  }
  if (verb == Request) {
    const std::optional<std::string> value = events_.LinkRequest(text);
    return value ? std::string(Value) + *value : std::string(Refused);
  }
  if (verb == Notify) return std::string(events_.LinkNotify(text) ? Accepted : Refused);
  return std::string(Refused);
}

void LinkServer::Drop(ClientPlace client) {
  loop_.Unwatch(client->Connection.Get());
  clients_.erase(client);
}

}  // namespace quorbin
