// The monitor's socket: many clients at a time, lines in, lines out, on a thread of its own.
#pragma once

#include <functional>
#include <list>
#include <string>
#include <thread>

#include "TurnedAway.h"

namespace vorn::monitor {

/**
 * Listens to the abstract name vorn.PID. A client that does not read what it is told is let go; none keeps another one
 * waiting.
 */
class Server {
 public:
  /** What to say to a line, without its line end. Called on the server's thread. */
  using Answer = std::function<std::string(const std::string& line)>;

  explicit Server(Answer newAnswer) : answer(std::move(newAnswer)) {}
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() { Stop(); }

  /** Without a socket or a thread it stays away, and the log says why. */
  void Start();
  /** Lets all clients go. From any thread but its own. */
  void Stop();

 private:
  struct Client {
    int socket;
    std::string in;
    std::string out;
  };

  bool Listen();
  void Serve();
  void Accept();
  /** @return whether the client stays. */
  bool Hear(Client& client);
  bool Say(Client& client);
  bool Reply(Client& client);

  const Answer answer;
  int listener = -1;
  int stopper = -1;  // readable once the thread is to end
  std::list<Client> clients;
  TurnedAway turnedAway;
  std::thread thread;
};

}  // namespace vorn::monitor
