// The page over HTTP, on the loopback alone.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "Access.h"
#include "Board.h"
#include "History.h"
#include "Observer.h"
#include "Plugins.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace vorn_web {

/**
 *     GET  /?token=TOKEN   gives the cookie that everything else asks for, and leads to /
 *     GET  /, /page.js ... the files of the page
 *     GET  /news           server-sent events: one for each topic of the board that is new
 *     GET  /history        see History
 *     GET  /plugins        see Plugins
 *     POST /request        {"words": [...]}: a request that changes something, to the monitor; its reply
 */
class PageServer {
 public:
  PageServer(Board& newBoard, const History& newHistory, Observer& newObserver);
  ~PageServer();
  PageServer(const PageServer&) = delete;
  PageServer& operator=(const PageServer&) = delete;

  /** @param wanted 0: any that is free. @return the port; negative: it could not be taken. */
  int Bind(int wanted);
  /** With the token; after Bind. */
  std::string Address() const;
  /** Serves, until Stop. */
  void Start();
  void Stop();

 private:
  void Route();
  /** @return whether the response is complete: the request was refused, or brought the token. */
  bool Admit(const httplib::Request& request, httplib::Response& response) const;
  void SendNews(httplib::Response& response);
  void Carry(const httplib::Request& request, httplib::Response& response);

  Board& board;
  const History& history;
  Observer& observer;
  const Access access;
  Plugins plugins;
  int port = 0;
  const std::unique_ptr<httplib::Server> server;
  std::thread thread;
};

}  // namespace vorn_web
