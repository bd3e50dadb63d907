// A monitor that answers as a test wants, under the address of the test's own process.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FakeMonitor {
 public:
  /** What to send for a request, a line's end included where there is to be one; "hang up" does that. */
  using Serve = std::function<std::string(const std::string& request)>;

  explicit FakeMonitor(Serve serve, pid_t pid = getpid())
      : answer(std::move(serve)), listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "vorn." + std::to_string(pid);
    name.copy(address.sun_path + 1, name.size());
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), length), 0) << std::strerror(errno);
    listen(listener, 16);
    door = std::thread([this] { Accept(); });
  }
  ~FakeMonitor() {
    shutdown(listener, SHUT_RDWR);
    door.join();
    for (const int client : clients) shutdown(client, SHUT_RDWR);
    for (std::thread& talk : talks) talk.join();
    for (const int client : clients) close(client);
    close(listener);
  }

  std::vector<std::string> Requests() {
    const std::lock_guard lock(mutex);
    return requests;
  }
  /** Those that begin so. */
  std::vector<std::string> Requests(const std::string& beginning) {
    std::vector<std::string> some = Requests();
    std::erase_if(some, [&](const std::string& request) { return request.rfind(beginning, 0) != 0; });
    return some;
  }

 private:
  void Accept() {
    for (int client; (client = accept(listener, nullptr, nullptr)) >= 0;) {
      clients.push_back(client);
      talks.emplace_back([this, client] { Talk(client); });
    }
  }
  void Talk(int client) {
    std::string received;
    char part[4096];
    for (ssize_t bytes; (bytes = read(client, part, sizeof part)) > 0;) {
      received.append(part, static_cast<std::size_t>(bytes));
      for (std::size_t end; (end = received.find('\n')) != received.npos; received.erase(0, end + 1)) {
        if (!Reply(client, received.substr(0, end))) return;
      }
    }
  }
  bool Reply(int client, const std::string& request) {
    {
      const std::lock_guard lock(mutex);
      requests.push_back(request);
    }
    const std::string reply = answer(request);
    if (reply == "hang up") return shutdown(client, SHUT_RDWR) < 0;
    return send(client, reply.data(), reply.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(reply.size());
  }

  const Serve answer;
  const int listener;
  std::thread door;
  std::list<int> clients;
  std::list<std::thread> talks;
  std::mutex mutex;
  std::vector<std::string> requests;
};
