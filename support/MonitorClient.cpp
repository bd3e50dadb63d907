#include "support/MonitorClient.h"

#include <poll.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <utility>

#include "support/Format.h"
#include "support/Printable.h"

namespace support {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::string_view PREFIX = "vorn.";
constexpr std::size_t LONGEST_REQUEST = 65536;
constexpr std::size_t LONGEST_REPLY = 64 << 20;
constexpr milliseconds STEP{50};  // how soon a wait is given up

MonitorReply Failure(MonitorOutcome outcome, std::string problem) { return {outcome, {}, std::move(problem)}; }

// "@vorn.4242", as /proc/net/unix shows an address
std::optional<pid_t> PidOf(std::string_view name) {
  if (name.substr(0, 1 + PREFIX.size()) != "@" + std::string(PREFIX)) return std::nullopt;
  name.remove_prefix(1 + PREFIX.size());
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
  const bool isNumber = error == std::errc() && end == name.data() + name.size() && pid > 0 && name[0] != '0';
  return isNumber ? std::optional(pid) : std::nullopt;
}

socklen_t MakeAddress(pid_t pid, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  const std::string name = std::string(PREFIX) + std::to_string(pid);
  name.copy(address.sun_path + 1, name.size());  // behind a NUL: an abstract name
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

Peer PeerOf(int fd) {
  ucred credentials{};
  socklen_t bytes = sizeof credentials;
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &bytes) < 0) return {};
  return {credentials.pid, credentials.uid};
}

std::string Quoted(const std::string& word) {
  if (!word.empty() && word.find_first_of(" \t\"\\") == word.npos) return word;
  std::string quoted = "\"";
  for (const char c : word) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

MonitorReply Read(const std::string& line) {
  MonitorReply reply;
  reply.json = Json::parse(line, nullptr, false);
  if (!reply.json.is_object()) return Failure(MonitorOutcome::NONSENSE, "the answer is no JSON object");
  reply.outcome = Member(reply.json, "error").is_null() ? MonitorOutcome::DONE : MonitorOutcome::FAILED;
  if (reply.outcome == MonitorOutcome::FAILED) reply.problem = Printable(TextOf(reply.json, "error"));
  return reply;
}

}  // namespace

std::string ProcessName(pid_t pid) {
  std::string name;
  std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
  return Printable(name);
}

std::string Describe(const Peer& peer) {
  if (peer.pid == 0) return "the process";
  const std::string name = ProcessName(peer.pid);
  return "process " + std::to_string(peer.pid) + (name.empty() ? "" : " (" + name + ")");
}

std::string UserName(uid_t uid) {
  const passwd* user = getpwuid(uid);
  return user ? user->pw_name : "user " + std::to_string(uid);
}

bool IsTrusted(uid_t uid) { return uid == 0 || uid == geteuid(); }

std::string WhyNotTrusted(const Peer& peer) {
  const std::string user = UserName(peer.uid);
  return "not trusted: " + Describe(peer) + " belongs to " + user + ", who is neither root nor you; ask it as " + user;
}

// A socket that listens has the flag 00010000 (__SO_ACCEPTCON); the connections to it bear its name too.
std::vector<pid_t> FindMonitors() {
  std::vector<pid_t> found;
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    std::istringstream fields(line);
    std::string number, references, protocol, flags, type, state, inode, name;
    fields >> number >> references >> protocol >> flags >> type >> state >> inode >> name;
    const auto pid = PidOf(name);
    if (pid && flags == "00010000") found.push_back(*pid);
  }
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

std::string ToRequest(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + Quoted(word);
  return line;
}

/** When to give up, and why it was. */
class MonitorClient::Deadline {
 public:
  explicit Deadline(const MonitorPatience& limits) : patience(limits), begin(Clock::now()) {}

  bool IsCancelled() const { return patience.cancelled && patience.cancelled(); }
  bool IsOver() const { return patience.limit.count() > 0 && Clock::now() >= begin + patience.limit; }
  /** Milliseconds to wait at once. */
  int Pause() const {
    if (patience.limit.count() == 0) return static_cast<int>(STEP.count());
    const auto left = std::chrono::ceil<milliseconds>(begin + patience.limit - Clock::now());
    return static_cast<int>(std::clamp(left, milliseconds(0), STEP).count());
  }
  std::string Limit() const { return Format("%g s", std::chrono::duration<double>(patience.limit).count()); }

 private:
  const MonitorPatience& patience;
  const Clock::time_point begin;
};

void MonitorClient::Close() {
  if (fd >= 0) close(fd);
  fd = -1;
  received.clear();
}

MonitorReply MonitorClient::GaveUp(const Deadline& deadline) const {
  if (deadline.IsCancelled()) return Failure(MonitorOutcome::CANCELLED, "given up");
  return Failure(MonitorOutcome::LATE,
                 "the monitor of " + Describe({pid, 0}) + " has not answered in " + deadline.Limit());
}

// A monitor closes the connections of strangers without a word.
MonitorReply MonitorClient::HungUp() {
  const bool inTheMiddle = !received.empty();
  Close();
  if (geteuid() != 0 && peer.uid != geteuid()) {
    return Failure(MonitorOutcome::NOT_ALLOWED, "not allowed: " + Describe(peer) + " belongs to " + UserName(peer.uid) +
                                                    " and serves that user and root only");
  }
  const char* const when = inTheMiddle ? "in the middle of its answer" : "before it answered";
  return Failure(MonitorOutcome::NOBODY,
                 Describe(peer) + " closed the connection " + when + "; it may have ended, or serve too many others");
}

bool MonitorClient::Wait(short events, const Deadline& deadline, MonitorReply& failure) const {
  for (;;) {
    if (deadline.IsCancelled()) break;
    pollfd one{fd, events, 0};
    if (poll(&one, 1, deadline.Pause()) > 0) return true;
    if (deadline.IsOver()) break;
  }
  failure = GaveUp(deadline);
  return false;
}

bool MonitorClient::Connect(const Deadline& deadline, MonitorReply& failure) {
  if (fd >= 0) return true;
  fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_un address;
  const socklen_t bytes = MakeAddress(pid, address);
  while (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&address), bytes) < 0) {
    if (errno == EAGAIN && !deadline.IsOver() && !deadline.IsCancelled()) {  // its queue is full
      poll(nullptr, 0, deadline.Pause());
    } else if (errno == EAGAIN) {
      return failure = GaveUp(deadline), Close(), false;
    } else if (errno != EINTR) {
      const std::string why = errno == ECONNREFUSED ? "" : std::string(": ") + std::strerror(errno);
      failure = Failure(MonitorOutcome::NOBODY, Describe({pid, 0}) + " has no monitor here" + why);
      return Close(), false;
    }
  }
  if (fd < 0) return failure = Failure(MonitorOutcome::NOBODY, std::strerror(errno)), false;
  peer = PeerOf(fd);
  if (IsTrusted(peer.uid)) return true;
  failure = Failure(MonitorOutcome::NOT_ALLOWED, WhyNotTrusted(peer));
  return Close(), false;
}

bool MonitorClient::Send(std::string line, const Deadline& deadline, MonitorReply& failure) {
  line += '\n';
  for (std::string_view left = line; !left.empty();) {
    const ssize_t sent = send(fd, left.data(), left.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      left.remove_prefix(static_cast<std::size_t>(sent));
    } else if (errno != EAGAIN && errno != EINTR) {
      return failure = HungUp(), false;
    } else if (!Wait(POLLOUT, deadline, failure)) {
      return false;
    }
  }
  return true;
}

MonitorReply MonitorClient::Receive(const Deadline& deadline) {
  std::array<char, 65536> part;
  std::size_t looked = 0;
  for (MonitorReply failure;;) {
    if (const auto end = received.find('\n', looked); end != received.npos) {
      MonitorReply reply = Read(received.substr(0, end));
      received.erase(0, end + 1);
      if (reply.outcome == MonitorOutcome::NONSENSE) Close();
      return reply;
    }
    looked = received.size();
    if (!Wait(POLLIN, deadline, failure)) return failure;
    const ssize_t got = recv(fd, part.data(), part.size(), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    if (got <= 0) return HungUp();
    received.append(part.data(), static_cast<std::size_t>(got));
    if (received.size() > LONGEST_REPLY) {
      return Close(), Failure(MonitorOutcome::NONSENSE, "the answer has no end");
    }
  }
}

MonitorReply MonitorClient::Ask(const std::vector<std::string>& words, const MonitorPatience& patience) {
  return AskLine(ToRequest(words), patience);
}

MonitorReply MonitorClient::AskLine(const std::string& line, const MonitorPatience& patience) {
  constexpr std::string_view UNSENDABLE("\n\r\0", 3);
  if (line.size() >= LONGEST_REQUEST || line.find_first_of(UNSENDABLE) != line.npos) {
    return Failure(MonitorOutcome::NONSENSE, "a request is one line of up to 65535 bytes");
  }
  const Deadline deadline(patience);
  MonitorReply failure;
  if (!Connect(deadline, failure)) return failure;
  if (!Send(line, deadline, failure)) return Close(), failure;
  MonitorReply reply = Receive(deadline);
  if (!reply.IsDone() && reply.outcome != MonitorOutcome::FAILED) Close();
  return reply;
}

MonitorReply MonitorClient::Next(const MonitorPatience& patience) {
  if (fd < 0) return Failure(MonitorOutcome::NOBODY, "no connection");
  return Receive(Deadline(patience));
}

}  // namespace support
