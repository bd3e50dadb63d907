#include "Monitor/Server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <new>
#include <optional>
#include <system_error>
#include <vector>

#include "Chronicle.h"
#include "Log.h"
#include "Peer.h"
#include "Thread.h"

namespace vorn::monitor {
namespace {

constexpr int BACKLOG = 16;
constexpr std::size_t MOST_CLIENTS = 64;
constexpr std::size_t LONGEST_LINE = 65536;
constexpr std::size_t MOST_UNREAD = 8 << 20;
constexpr std::chrono::seconds TICK(1);
constexpr std::chrono::milliseconds SOON(1);

}  // namespace

Server::~Server() {
  Stop();
  Finish();
}

void Server::Start() {
  bell = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (bell < 0 || !Listen()) {
    LOG_I("No monitor: %s", std::strerror(errno));
    return;
  }
  try {
    thread = StartThread("vorn-monitor", [this] { Serve(); });
  } catch (const std::system_error& e) {  // all else works without
    LOG_E("Unable to start the monitor's thread: %s", e.what());
  }
}

bool Server::Listen() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = "vorn." + std::to_string(getpid());
  name.copy(address.sun_path + 1, name.size());  // behind a NUL: an abstract name
  listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  return listener >= 0 && bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
         listen(listener, BACKLOG) == 0;
}

void Server::Stop() {
  if (thread.joinable()) {
    stopping = true;
    Ring();
    thread.join();
  }
  if (listener >= 0) close(listener);
  listener = -1;
}

void Server::Finish() {
  for (auto& [id, worker] : workers) worker.join();
  workers.clear();
  if (bell >= 0) close(bell);
  bell = -1;
}

void Server::Ring() const { eventfd_write(bell, 1); }

void Server::Serve() try {
  nextTick = Clock::now();
  for (;;) {
    sockets = {{bell, POLLIN, 0}, {listener, static_cast<short>(clients.size() < MOST_CLIENTS ? POLLIN : 0), 0}};
    for (const Client& client : clients) {
      sockets.push_back({client.socket, static_cast<short>(client.out.empty() ? POLLIN : POLLIN | POLLOUT), 0});
    }
    if (poll(sockets.data(), sockets.size(), Pause(Clock::now())) < 0 && errno != EINTR) break;
    if (stopping) break;
    if (sockets[0].revents != 0) HearBell();
    const auto now = Clock::now();
    if (now >= nextTick) speaker.Tick(), nextTick = now + TICK;
    std::size_t i = 2;
    for (auto client = clients.begin(); client != clients.end();) {
      const auto next = std::next(client);
      if (!Serve(*client, sockets[i++].revents, now)) close(client->socket), clients.erase(client);
      client = next;
    }
    if (sockets[1].revents != 0) Accept();
  }
  LetGo();
} catch (const std::bad_alloc&) {
  LOG_E("No memory for the monitor, it ends");
  LetGo();
}

void Server::LetGo() {
  for (const Client& client : clients) close(client.socket);
  clients.clear();
}

/** @return whether the client stays. */
bool Server::Serve(Client& client, short happened, Clock::time_point now) try {
  Watch(client, now);
  TellNews(client);
  if (client.out.size() > MOST_UNREAD) return false;
  if (client.heldSince && !AnswerLines(client)) return false;
  return Say(client) && ((happened & (POLLIN | POLLHUP | POLLERR)) == 0 || Hear(client));
} catch (const std::bad_alloc&) {
  return false;
}

void Server::Accept() {
  const int socket = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket < 0) return;
  uid_t uid = 0;
  if (MayEnter(socket, uid)) {
    clients.push_back({++lastClient, socket});
    return;
  }
  close(socket);
  if (const auto count = turnedAway.Count(std::chrono::steady_clock::now())) {
    LOG_W("Turned away a client of user %u from the monitor, which serves user %u and root (%lu since this was said)",
          uid, geteuid(), *count);
    Chronicle::Tell(Chronicle::Kind::REFUSED, "", "", "a client of user " + std::to_string(uid) + " at the monitor");
  }
}

bool Server::Hear(Client& client) {
  std::array<char, 4096> text;
  const ssize_t got = recv(client.socket, text.data(), text.size(), 0);
  if (got < 0) return errno == EAGAIN || errno == EINTR;
  if (got == 0) return false;
  client.in.append(text.data(), static_cast<std::size_t>(got));
  return AnswerLines(client) && Say(client);
}

bool Server::AnswerLines(Client& client) {
  std::size_t begin = 0;
  for (std::size_t end; (end = client.in.find('\n', begin)) != client.in.npos; begin = end + 1) {
    const bool isDos = end > begin && client.in[end - 1] == '\r';
    if (!AnswerLine(client, client.in.substr(begin, end - begin - (isDos ? 1 : 0)))) break;
  }
  client.in.erase(0, begin);
  return client.in.size() <= LONGEST_LINE && client.out.size() <= MOST_UNREAD;
}

bool Server::AnswerLine(Client& client, const std::string& line) {
  const auto now = Clock::now();
  const Reply reply = speaker.Answer(line, now - client.heldSince.value_or(now));
  if (reply.comesSoon) {
    if (!client.heldSince) client.heldSince = now;
    return false;
  }
  client.heldSince.reset();
  if (reply.takesLong) {
    client.toCarryOut.push_back(line);
    if (client.toCarryOut.size() == 1) Begin(client);
    return true;
  }
  client.out += reply.text + '\n';
  if (reply.newsAfter) client.newsAfter = reply.newsAfter;
  if (!reply.every) return true;
  client.watched = line;
  client.every = *reply.every;
  client.next = now + client.every;
  return true;
}

/** Carries out the first of a client's lines, for which it may be gone by the end. */
void Server::Begin(Client& client) try {
  {
    const std::lock_guard lock(mutex);
    carriedOut.reserve(workers.size() + 1);
  }
  std::thread& worker = workers[client.id];
  worker = StartThread("vorn-edit", [this, id = client.id, line = client.toCarryOut[0]] { CarryOut(id, line); });
} catch (const std::system_error& e) {
  workers.erase(client.id);
  client.out += speaker.Failure(e.what()) + '\n';
  client.toCarryOut.pop_front();
}

void Server::CarryOut(unsigned long client, const std::string& line) {
  std::string text;
  try {
    text = speaker.CarryOut(line);
  } catch (const std::bad_alloc&) {  // nothing more to say to this client
  }
  const std::lock_guard lock(mutex);
  carriedOut.emplace_back(client, std::move(text));  // there is room
  Ring();
}

void Server::HearBell() {
  eventfd_t rings = 0;
  eventfd_read(bell, &rings);
  std::vector<std::pair<unsigned long, std::string>> ended;
  {
    const std::lock_guard lock(mutex);
    ended.swap(carriedOut);
  }
  for (const auto& [id, text] : ended) {
    workers[id].join();
    workers.erase(id);
    const auto client = std::ranges::find(clients, id, &Client::id);
    if (client == clients.end()) continue;
    if (text.empty()) shutdown(client->socket, SHUT_RDWR);
    client->out += text + '\n';
    client->toCarryOut.pop_front();
    if (!client->toCarryOut.empty()) Begin(*client);
  }
}

void Server::TellNews(Client& client) {
  if (!client.newsAfter) return;
  if (const std::string news = speaker.News(*client.newsAfter); !news.empty()) client.out += news + '\n';
}

// Who has not read the last of them gets no more until then.
void Server::Watch(Client& client, Clock::time_point now) {
  if (client.every.count() == 0 || now < client.next) return;
  client.next = std::max(client.next + client.every, now);
  if (!client.out.empty()) return;
  client.out += speaker.Answer(client.watched, Clock::duration::max()).text + '\n';
}

/** Milliseconds until something is due; rounded up, so that it is by then. */
int Server::Pause(Clock::time_point now) const {
  auto next = nextTick;
  for (const Client& client : clients) {
    if (client.every.count() > 0) next = std::min(next, client.next);
    if (client.heldSince) next = std::min(next, now + SOON);
  }
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(std::max(next - now, {})).count());
}

bool Server::Say(Client& client) {
  while (!client.out.empty()) {
    const ssize_t put = send(client.socket, client.out.data(), client.out.size(), MSG_NOSIGNAL);
    if (put < 0) return errno == EAGAIN || errno == EINTR;
    client.out.erase(0, static_cast<std::size_t>(put));
  }
  return true;
}

}  // namespace vorn::monitor
