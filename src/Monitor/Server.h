// The monitor's socket: many clients at a time, lines in, lines out, on a thread of its own.
#pragma once

#include <chrono>
#include <functional>
#include <list>
#include <optional>
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
  using Clock = std::chrono::steady_clock;

  struct Reply {
    std::string text;                                     ///< Without its line end.
    std::optional<std::chrono::milliseconds> every = {};  ///< Says it anew so often, or with 0 no more.
  };
  /** What to say to a line. All callbacks come on the server's thread. */
  using Answer = std::function<Reply(const std::string& line)>;

  /** @param newTick called once a second. */
  Server(Answer newAnswer, std::function<void()> newTick) : answer(std::move(newAnswer)), tick(std::move(newTick)) {}
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
    std::string in = {};
    std::string out = {};
    std::string watched = {};            // the line that is answered anew
    std::chrono::milliseconds every{0};  // 0: none is
    Clock::time_point next = {};
  };

  bool Listen();
  void Serve();
  void Accept();
  /** @return whether the client stays. */
  bool Hear(Client& client);
  bool Say(Client& client);
  bool AnswerLines(Client& client);
  void AnswerLine(Client& client, const std::string& line);
  /** What is due by now. */
  void Watch(Client& client, Clock::time_point now);
  int Pause(Clock::time_point now) const;

  const Answer answer;
  const std::function<void()> tick;
  Clock::time_point nextTick;
  int listener = -1;
  int stopper = -1;  // readable once the thread is to end
  std::list<Client> clients;
  TurnedAway turnedAway;
  std::thread thread;
};

}  // namespace vorn::monitor
