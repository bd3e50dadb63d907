// A console that answers as a test wants, under the name of the real one; each test runs where that name is free.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class FakeConsole {
 public:
  /** Writes what it likes to the client, or nothing; false hangs up. */
  using Serve = std::function<bool(int client, const std::string& command)>;

  /** Without `serve` it lets everybody wait in its queue, until Serve(). */
  explicit FakeConsole(Serve serve = nullptr) : listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, "\0vrdbsock", 10);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), 12), 0) << std::strerror(errno);
    listen(listener, 1);
    if (serve) Start(std::move(serve));
  }
  ~FakeConsole() {
    shutdown(listener, SHUT_RDWR);
    if (thread.joinable()) thread.join();
    close(listener);
  }

  void Start(Serve serve) {
    thread = std::thread([this, serve = std::move(serve)] {
      for (int client; (client = accept(listener, nullptr, nullptr)) >= 0; close(client)) Talk(client, serve);
    });
  }

  std::vector<std::string> Commands() {
    std::lock_guard lock(mutex);
    return commands;
  }

 private:
  void Talk(int client, const Serve& serve) {
    char command[1024];
    for (ssize_t bytes; (bytes = read(client, command, sizeof command - 1)) > 0;) {
      const std::string text(command, static_cast<std::size_t>(bytes));
      {
        std::lock_guard lock(mutex);
        commands.push_back(text);
      }
      if (!serve(client, text)) return;
    }
  }

  const int listener;
  std::thread thread;
  std::mutex mutex;
  std::vector<std::string> commands;
};

/** Sends a piece of a reply; "\0"s in it only where `text` is a std::string that has them. */
inline bool Put(int client, const std::string& text) {
  return send(client, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}
