// A client of the console that is as strict as the protocol: a reply is what comes before the NUL, and nothing follows.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "testkit/Wait.h"

namespace testkit {

class ConsoleClient {
 public:
  static constexpr socklen_t ADDRESS_LENGTH = 12;

  /** A connected descriptor, or a negative error number: -EAGAIN while too many others wait. Does not block. */
  static int Connect(socklen_t addressLength = ADDRESS_LENGTH) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, "\0vrdbsock", 9);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), addressLength) == 0) return fd;
    const int error = errno;
    return close(fd), -error;
  }

  /** Connects once somebody listens; being served may take longer. */
  ConsoleClient() {
    EXPECT_TRUE(WaitUntil([this] { return (fd = Connect()) >= 0; })) << std::strerror(-fd);
    fcntl(fd, F_SETFL, 0);
    const timeval limit{20, 0};  // a reply that never comes is a failure, not a hang
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  ~ConsoleClient() { Leave(); }
  void Leave() {
    if (fd >= 0) close(fd);
    fd = -1;
  }

  std::string Ask(const std::string& command) { return Send(command), Reply(); }
  void Send(const std::string& command) const {
    EXPECT_EQ(send(fd, command.data(), command.size(), MSG_NOSIGNAL), static_cast<ssize_t>(command.size()));
  }
  /** The reply without its NUL; ends in "(end)" when the connection did before it, in "(late)" when it never came. */
  std::string Reply() {
    const std::string reply = ReplyBeforeMore();
    EXPECT_EQ(pending, "") << "follows the NUL";
    return reply;
  }
  /** The same, where the reply to the rest of a long command may follow at once. */
  std::string ReplyBeforeMore() {
    std::size_t end;
    while ((end = pending.find('\0')) == std::string::npos) {
      char part[65536];
      const ssize_t got = recv(fd, part, sizeof part, 0);
      if (got <= 0) return std::exchange(pending, {}) + (got < 0 && errno == EAGAIN ? "(late)" : "(end)");
      pending.append(part, static_cast<std::size_t>(got));
    }
    const std::string reply = pending.substr(0, end);
    pending.erase(0, end + 1);
    return reply;
  }
  /** Waits until the reply begins to arrive, and leaves it there. */
  void AwaitReply() const {
    char first;
    EXPECT_EQ(recv(fd, &first, 1, MSG_PEEK), 1);
  }

 private:
  int fd = -1;
  std::string pending;
};

}  // namespace testkit
