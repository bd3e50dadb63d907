// The second door of a process, for looking: see docs/monitor.md. Built without it (VORN_MONITOR=OFF), None.cpp stands
// in.
//
// Server.cpp    the socket and its clients
// Survey.cpp    what is said of routes, blocks, links and FIFOs
// Reason.cpp    why a route does what it does
// Edits.cpp     what changes something
// Dump.cpp      what has the routes write what leaves their blocks
// Json.cpp      the form of all replies
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <sstream>
#include <string>

#include "RingBuffer/RingBuffer.h"
#include "Route/RouteImpl.h"

namespace vorn::monitor {

/** What there is at one instant, kept alive by those who look. */
struct Registry {
  std::list<std::shared_ptr<RouteImpl>> routes;
  std::list<std::shared_ptr<RingBuffer>> fifos;
};

/** What the monitor needs of the framework. All may be called from any thread. */
struct Framework {
  std::function<Registry()> registry;
  /** Shares of routes were let go of. */
  std::function<void()> released;
  /** Carries out a command of the console: false for a word that is none. */
  std::function<bool(const std::string& word, std::stringstream& args, std::string& reply)> command;
  std::function<bool()> hasConsole;
};

class Monitor {
 public:
  explicit Monitor(Framework framework);
  ~Monitor();
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;

  /** Opens the door. Without a socket or a thread it stays shut, and the log says why. */
  void Start();
  /** Shuts it. Edits go on: Finish() waits for them. */
  void Stop();
  void Finish();

 private:
  class Speaker;
  std::unique_ptr<Speaker> speaker;
  bool isListening = false;
};

}  // namespace vorn::monitor
