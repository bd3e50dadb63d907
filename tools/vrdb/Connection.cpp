#include "Connection.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "SocketDiagnosis.h"
#include "support/Format.h"
#include "support/Printable.h"

namespace vrdb {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;
using support::Describe;
using Clock = std::chrono::steady_clock;

// The name is the nine bytes "vrdbsock" and a NUL, in the abstract name space: 12 bytes with the family.
constexpr char NAME[] = "\0vrdbsock";
constexpr socklen_t ADDRESS_BYTES = sizeof(sa_family_t) + sizeof NAME;
static_assert(ADDRESS_BYTES == 12);

constexpr microseconds SHORTEST_PAUSE{100};
constexpr microseconds LONGEST_PAUSE{20000};
constexpr milliseconds BUSY_NOTICE{1000};

class Exchange {
 public:
  explicit Exchange(const Patience& limits) : patience(limits) {}
  ~Exchange() {
    if (fd >= 0) close(fd);
  }
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;

  /** Each step says whether the next one can follow; if not, answer says why. */
  bool Connect();
  bool WaitForTurn();
  bool Send(const std::string& command);
  bool Receive();

  Answer answer;

 private:
  enum class Event { READABLE, PAUSED, GAVE_UP };

  Event Pause(microseconds length);
  bool Fail(Outcome outcome, std::string why);
  bool FailBusy();
  bool FailClosed(const char* when);
  std::string Limit() const;

  const Patience& patience;
  const Clock::time_point begin = Clock::now();
  int fd = -1;
  bool connected = false;
  bool expired = false;
  bool toldBusy = false;
  bool waitsForTurn = true;
};

bool Exchange::Fail(Outcome outcome, std::string why) {
  answer.outcome = outcome;
  answer.text = std::move(why);
  return false;
}

std::string Exchange::Limit() const {
  return support::Format("%g s", static_cast<double>(patience.limit.count()) / 1000);
}

bool Exchange::FailBusy() {
  if (!expired) return Fail(Outcome::CANCELLED, "given up");
  return Fail(Outcome::BUSY, "no console: " + Describe(answer.peer) + " has not taken the command in " + Limit() +
                                 ": it is busy with another client, or stopped");
}

// A console closes the connections of strangers without a word.
bool Exchange::FailClosed(const char* when) {
  const uid_t self = geteuid();
  if (self != 0 && answer.peer.uid != self) return Fail(Outcome::NO_CONSOLE, support::NotAllowed(answer.peer));
  return Fail(Outcome::NO_CONSOLE,
              "no console: " + Describe(answer.peer) + " closed the connection " + when + "; it may have ended");
}

Exchange::Event Exchange::Pause(microseconds length) {
  if (patience.cancelled && patience.cancelled()) return Event::GAVE_UP;
  const bool isShorter = patience.limit.count() == 0 || patience.turn < patience.limit;
  const milliseconds limit = waitsForTurn && patience.turn.count() > 0 && isShorter ? patience.turn : patience.limit;
  if (limit.count() > 0) {
    const auto left = std::chrono::duration_cast<microseconds>(begin + limit - Clock::now());
    expired = left.count() <= 0;
    if (expired) return Event::GAVE_UP;
    length = std::min(length, left);
  }
  pollfd one{connected ? fd : -1, POLLIN, 0};  // an unconnected socket would always be ready
  const timespec pause{0, std::chrono::nanoseconds(length).count()};
  return ppoll(&one, 1, &pause, nullptr) > 0 ? Event::READABLE : Event::PAUSED;
}

bool Exchange::Connect() {
  fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return Fail(Outcome::NO_CONSOLE, std::string("no socket: ") + std::strerror(errno));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, NAME, sizeof NAME);
  while (connect(fd, reinterpret_cast<const sockaddr*>(&address), ADDRESS_BYTES) < 0) {
    if (errno == EINTR) continue;
    if (errno == ECONNREFUSED) {
      return Fail(Outcome::NO_CONSOLE,
                  "no console: no process that uses libvorn is running here (a container has a console of its own)");
    }
    if (errno != EAGAIN) return Fail(Outcome::NO_CONSOLE, std::string("no console: ") + std::strerror(errno));
    if (Pause(LONGEST_PAUSE) == Event::GAVE_UP) return FailBusy();  // EAGAIN: even its queue is full
  }
  connected = true;
  ucred credentials{};
  socklen_t bytes = sizeof credentials;
  getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &bytes);
  answer.peer = {credentials.pid, credentials.uid};
  return support::IsTrusted(answer.peer.uid) || Fail(Outcome::NO_CONSOLE, support::NotAllowed(answer.peer));
}

bool Exchange::WaitForTurn() {
  for (auto pause = SHORTEST_PAUSE; IsAccepted(fd) == Accepted::NO; pause = std::min(2 * pause, LONGEST_PAUSE)) {
    switch (Pause(pause)) {
      case Event::READABLE: return FailClosed("before it took the command");
      case Event::GAVE_UP: return FailBusy();
      case Event::PAUSED: break;
    }
    if (patience.busy && !toldBusy && Clock::now() - begin > BUSY_NOTICE) {
      toldBusy = true;
      patience.busy("waiting for " + Describe(answer.peer) + ", which is busy with another client, or stopped");
    }
  }
  waitsForTurn = false;
  return true;
}

bool Exchange::Send(const std::string& command) {
  if (send(fd, command.data(), command.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(command.size())) return true;
  return FailClosed("before it took the command");
}

bool Exchange::Receive() {
  char part[4096];
  while (Pause(LONGEST_PAUSE) != Event::GAVE_UP) {
    const ssize_t bytes = recv(fd, part, sizeof part, 0);
    if (bytes < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (bytes <= 0) return FailClosed(answer.text.empty() ? "before it answered" : "in the middle of its answer");
    const std::string_view received(part, static_cast<std::size_t>(bytes));
    const auto end = received.find('\0');
    answer.text += received.substr(0, end);
    if (end == std::string_view::npos) continue;
    answer.text = support::PrintableLines(answer.text);
    answer.outcome = Outcome::ANSWERED;
    return true;
  }
  if (!expired) return Fail(Outcome::CANCELLED, "given up; the command may still be carried out");
  return Fail(Outcome::TIMED_OUT,
              Describe(answer.peer) + " has not answered in " + Limit() + "; the command may still be carried out");
}

}  // namespace

Answer Ask(const std::string& command, const Patience& patience) {
  Exchange exchange(patience);
  if (exchange.Connect() && exchange.WaitForTurn() && exchange.Send(command)) exchange.Receive();
  return std::move(exchange.answer);
}

Answer Knock(const Patience& patience) {
  Exchange exchange(patience);
  if (exchange.Connect()) exchange.answer.outcome = Outcome::ANSWERED;
  return std::move(exchange.answer);
}

}  // namespace vrdb
