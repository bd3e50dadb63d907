// The monitor's socket: many clients at a time, lines in, lines out, on a thread of its own.
#pragma once

#include <poll.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "TurnedAway.h"

namespace vorn::monitor {

/**
 * Listens to the abstract name vorn.PID. A client that does not read what it is told is let go; none keeps another one
 * waiting, and a request that takes long has a thread of its own.
 */
class Server {
 public:
  using Clock = std::chrono::steady_clock;

  struct Reply {
    std::string text;                                     ///< Without its line end.
    std::optional<std::chrono::milliseconds> every = {};  ///< Says it anew so often, or with 0 no more.
    std::optional<unsigned long> newsAfter = {};          ///< Says what is new from this number on.
    bool takesLong = false;                               ///< There is no text yet: CarryOut() is to be called.
    bool comesSoon = false;                               ///< There is no text yet: Answer() is to be called again.
  };

  /** What is said. */
  class Speaker {
   public:
    /** The reply to a line. On the server's thread: never waits. @param held since Answer() said first that it comes soon. */
    virtual Reply Answer(const std::string& line, Clock::duration held) = 0;
    /** The reply to a line of which Answer() said that it takes long. On a thread of its own, one at a time a client. */
    virtual std::string CarryOut(const std::string& line) = 0;
    /** Once a second. On the server's thread. */
    virtual void Tick() = 0;
    /** The reply to a line that cannot be carried out. */
    virtual std::string Failure(const std::string& why) = 0;
    /** What is newer than this number, which becomes that of the last; empty for nothing. On the server's thread. */
    virtual std::string News(unsigned long& number) = 0;

   protected:
    ~Speaker() = default;
  };

  explicit Server(Speaker& newSpeaker) : speaker(newSpeaker) {}
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  /** Without a socket or a thread it stays away, and the log says why. */
  void Start();
  /** Lets all clients go. What takes long goes on. From any thread but its own. */
  void Stop();
  /** Waits for what takes long. After Stop(). */
  void Finish();
  /** There is news. Any thread; to be heard, the server has started. */
  void Ring() const;

 private:
  struct Client {
    unsigned long id;
    int socket;
    std::string in = {};
    std::string out = {};
    std::string watched = {};            // the line that is answered anew
    std::chrono::milliseconds every{0};  // 0: none is
    Clock::time_point next = {};
    std::optional<unsigned long> newsAfter = {};
    std::optional<Clock::time_point> heldSince = {};  // its first line has no answer yet
    std::deque<std::string> toCarryOut = {};          // the first of them now
  };

  bool Listen();
  void Serve();
  void LetGo();
  void Accept();
  /** These say whether the client stays. */
  bool Serve(Client& client, short happened, Clock::time_point now);
  bool Hear(Client& client);
  bool Say(Client& client);
  bool AnswerLines(Client& client);
  /** @return false where the answer comes soon. */
  bool AnswerLine(Client& client, const std::string& line);
  /** What is due by now. */
  void Watch(Client& client, Clock::time_point now);
  void TellNews(Client& client);
  int Pause(Clock::time_point now) const;
  void Begin(Client& client);
  void CarryOut(unsigned long client, const std::string& line);
  void HearBell();

  Speaker& speaker;
  Clock::time_point nextTick;
  int listener = -1;
  int bell = -1;  // readable where the thread is to look up: something was carried out, there is news, or it is to end
  std::atomic<bool> stopping{false};
  std::vector<pollfd> sockets;  // not on the thread's stack: a child of fork() has none of that, only the memory
  std::list<Client> clients;
  unsigned long lastClient = 0;
  std::map<unsigned long, std::thread> workers;  // by client
  TurnedAway turnedAway;
  std::thread thread;

  std::mutex mutex;  // guards this:
  std::vector<std::pair<unsigned long, std::string>> carriedOut;
};

}  // namespace vorn::monitor
