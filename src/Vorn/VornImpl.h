// The framework object: the registries of routes and FIFOs, and the debug console.
//
// VornImpl.cpp       start-up, shut-down, registries
// DebugServer.cpp    the console's thread: socket, commands in, replies out
// DebugCommands.cpp  what the commands do
// StatusReport.cpp   the report on all routes and FIFOs, as text and as a graph
#pragma once

#include <atomic>
#include <condition_variable>
#include <iosfwd>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <vorn/Vorn.h>

#include "Monitor/Monitor.h"
#include "RingBuffer/RingBuffer.h"
#include "Route/RouteImpl.h"

namespace vorn {

class VornImpl final : public Vorn {
  friend class Vorn;

 public:
  explicit VornImpl(const char* configPath = "/etc/vorn.conf");
  ~VornImpl() override;

  Route* NewRoute(const char* name, Route::Callbacks* callbacks) override;
  void DeleteRoute(Route* route) override;
  FIFO* NewFIFO(unsigned int rate, unsigned long sampleSize, long capacity, long prefill) override;
  void DeleteFIFO(FIFO* fifo) override;

  /**
   * Carries out one command of the console, on the caller's thread.
   *
   * @param args what follows the word. @param reply replaced by the command's own.
   * @return false for a word that is none, with the reply left alone.
   */
  bool RunCommand(const std::string& word, std::stringstream& args, std::string& reply);

 private:
  void Configure(const char* configPath);

  /** A share of the route, which keeps DeleteRoute() waiting; null for none of that name. */
  std::shared_ptr<RouteImpl> FindRoute(const std::string& name) const;
  bool HasRoute_l(const std::string& name) const;
  std::vector<std::string> RouteNames() const;
  std::shared_ptr<RouteImpl> ShareOf(const Route* route) const;
  void DropRoute(Route* route, long sharesOfCaller);

  // The console's thread.
  void DebugThreadLoop();
  void ReleasedRoutes();
  void KeepSocket(int& slot, int socket);
  void CloseSocket(int& slot);
  int OnCommand_status(std::stringstream& args, std::string& reply);
  int OnCommand_newroute(std::stringstream& args, std::string& reply);
  int OnCommand_newblock(std::stringstream& args, std::string& reply);
  int OnCommand_newlink(std::stringstream& args, std::string& reply);
  int OnCommand_start(std::stringstream& args, std::string& reply);
  int OnCommand_stop(std::stringstream& args, std::string& reply);
  int OnCommand_setparam(std::stringstream& args, std::string& reply);
  int OnCommand_getparam(std::stringstream& args, std::string& reply);
  int OnCommand_delete(std::stringstream& args, std::string& reply);
  int OnCommand_loglevel(std::stringstream& args, std::string& reply);
  int OnCommand_setdump(std::stringstream& args, std::string& reply);
  static void MainThread(VornImpl* vorn);

  monitor::Framework ForMonitor();

  // The end.
  void ShutDownConsole();
  void EndRoutes();
  bool MustWaitForRoutes() const;
  void LeaveWhatCannotEnd();

  // Guards the two lists, for the instant of a look or a change; routes and FIFOs end outside of it.
  mutable std::mutex registryMutex;
  std::condition_variable routeReleased;         // the console dropped its shares of routes
  std::list<std::shared_ptr<RingBuffer>> fifos;  // newest first, as the routes
  std::list<std::shared_ptr<RouteImpl>> routes;

  monitor::Monitor monitor;
  bool hasMonitor = true;  // as configured

  std::thread debugThread;
  std::atomic<bool> exiting{false};
  enum class Console { UNKNOWN, LISTENS, NONE };
  std::atomic<Console> console{Console::UNKNOWN};
  void TellConsole(Console now);

  // So that shut-down never meets a descriptor that was closed under it and belongs to somebody else by now.
  std::mutex socketMutex;
  int listenSocket = -1;
  int clientSocket = -1;

  std::string dumpPath;  // fixed once configured; ends in "/" unless empty
};

}  // namespace vorn
