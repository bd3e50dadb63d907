// The console's server: one thread, one client at a time, one command a read, one reply that ends in a NUL.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <sstream>
#include <string>

#include "Chronicle.h"
#include "Log.h"
#include "Peer.h"
#include "TurnedAway.h"
#include "Vorn/VornImpl.h"

namespace vorn {
namespace {

constexpr int BACKLOG = 1;
constexpr std::size_t COMMAND_BUFFER_SIZE = 1024;

// An abstract name: it begins with a NUL, and the one at its end is part of it.
constexpr char SOCKET_NAME[] = "\0vrdbsock";

socklen_t FillAddress(sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, SOCKET_NAME, sizeof SOCKET_NAME);
  return offsetof(sockaddr_un, sun_path) + sizeof SOCKET_NAME;
}

}  // namespace

void VornImpl::DebugThreadLoop() {
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  KeepSocket(listenSocket, listener);
  if (listener < 0) {
    LOG_E("Unable to create a socket %d", listener);
    return;
  }
  sockaddr_un address;
  const socklen_t addressLength = FillAddress(address);
  const int bound = bind(listener, reinterpret_cast<sockaddr*>(&address), addressLength);
  if (bound < 0) {
    LOG_E("Failed to bind, can't listen to vrdb %d", bound);
    return;
  }
  if (listen(listener, BACKLOG) == -1) {
    LOG_E("Listen to socket failed");
    return;
  }
  TellConsole(Console::LISTENS);

  TurnedAway turnedAway;
  while (!exiting) {
    LOG_D("Waiting for vrdb ...");
    sockaddr_un peerAddress;
    socklen_t peerAddressLength = sizeof peerAddress;
    const int client = accept4(listener, reinterpret_cast<sockaddr*>(&peerAddress), &peerAddressLength, SOCK_CLOEXEC);
    KeepSocket(clientSocket, client);
    if (client < 0) break;
    LOG_D("Accepted vrdb %d", client);

    uid_t uid = 0;
    const bool mayCommand = MayEnter(client, uid);
    if (const auto count = mayCommand ? std::nullopt : turnedAway.Count(std::chrono::steady_clock::now())) {
      LOG_W("Turned away vrdb of user %u, this console serves user %u and root%s", uid, geteuid(),
            *count > 1 ? (" (" + std::to_string(*count) + " times since this was said last)").c_str() : "");
      Chronicle::Tell(Chronicle::Kind::REFUSED, {}, {}, "a client of user " + std::to_string(uid) + " at the console");
    }
    // Nobody would shut down a client that was accepted after the framework began to end: it is not read from at all.
    for (const bool serve = mayCommand && !exiting; serve;) {
      LOG_D("Reading from vrdb ...");
      char text[COMMAND_BUFFER_SIZE] = {};
      const int got = static_cast<int>(read(client, text, sizeof text - 1));
      if (got < 0) {
        LOG_E("Read from vrdb failed %d", got);
        break;
      }
      if (got == 0) {
        LOG_D("Read from vrdb finished");
        break;
      }
      LOG_D("Received command '%s'", text);
      try {
        std::stringstream args{std::string(text)};
        std::string word;
        if (!(args >> word)) {
          LOG_D("Unable to read string");
          continue;
        }
        std::string reply = "Unknown command '" + word + "'\n";
        if (!RunCommand(word, args, reply)) LOG_D("Unknown command '%s'", text);
        const int put = static_cast<int>(send(client, reply.c_str(), reply.size() + 1, MSG_NOSIGNAL));
        if (put <= 0) {
          LOG_D("Write to vrdb failed %d", put);
          break;
        }
      } catch (const std::bad_alloc& e) {  // the client's failure, which must not be the end of the process
        LOG_E("No memory for a command: %s", e.what());
        break;
      }
    }
    CloseSocket(clientSocket);
  }

  CloseSocket(listenSocket);
  CloseSocket(clientSocket);
  LOG_D("Exit");
}

bool VornImpl::RunCommand(const std::string& word, std::stringstream& args, std::string& reply) {
  static constexpr struct {
    const char* word;
    int (VornImpl::*handler)(std::stringstream& args, std::string& reply);
  } COMMANDS[] = {
      {"status", &VornImpl::OnCommand_status},     {"newroute", &VornImpl::OnCommand_newroute},
      {"newblock", &VornImpl::OnCommand_newblock}, {"newlink", &VornImpl::OnCommand_newlink},
      {"start", &VornImpl::OnCommand_start},       {"stop", &VornImpl::OnCommand_stop},
      {"setparam", &VornImpl::OnCommand_setparam}, {"getparam", &VornImpl::OnCommand_getparam},
      {"delete", &VornImpl::OnCommand_delete},     {"loglevel", &VornImpl::OnCommand_loglevel},
      {"setdump", &VornImpl::OnCommand_setdump},
  };
  for (const auto& command : COMMANDS) {
    if (word != command.word) continue;
    try {
      (this->*command.handler)(args, reply);
    } catch (const std::exception& e) {  // no memory or thread left: the operator's failure, not the end of the process
      LOG_E("%s failed: %s", command.word, e.what());
    }
    ReleasedRoutes();
    return true;
  }
  return false;
}

void VornImpl::ShutDownConsole() {
  const std::lock_guard<std::mutex> lock(socketMutex);
  exiting = true;
  shutdown(clientSocket, SHUT_RDWR);
  shutdown(listenSocket, SHUT_RDWR);
}

void VornImpl::KeepSocket(int& slot, int socket) {
  const std::lock_guard<std::mutex> lock(socketMutex);
  slot = socket;
}

void VornImpl::CloseSocket(int& slot) {
  const std::lock_guard<std::mutex> lock(socketMutex);
  close(slot);
  slot = -1;
}

}  // namespace vorn
