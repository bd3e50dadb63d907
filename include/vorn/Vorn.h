/**
 * Vorn runs audio graphs inside your process.
 *
 *     #include <future>
 *     #include <utility>
 *     #include <vorn/Vorn.h>
 *
 *     struct Ending : vorn::Route::Callbacks {
 *       std::promise<void> stopped;
 *       bool isTold = false;
 *       void OnStopped(vorn::Route::StopReason) override {
 *         if (!std::exchange(isTold, true)) stopped.set_value();  // it may come again
 *       }
 *     } ending;
 *
 *     int main() {
 *       vorn::Route* route = vorn::Vorn::Instance()->NewRoute("RouteA", &ending);
 *       vorn::Block* in = route->NewBlock("libfilesource.so", true, false, {"in.wav"});
 *       vorn::Block* out = route->NewBlock("libfilesink.so", false, true, {"out.wav"});
 *       if (!route->NewLink(48000, vorn::SampleFormat::S16_LE, 2, 480, in, 0, out, 0)) return 1;
 *       if (route->Start() != 0) return 1;
 *       ending.stopped.get_future().wait();  // the route runs on a thread of its own, and ends with the process
 *     }
 *
 * Creations return nullptr and other calls a negative number on failure; the log says why. Nothing is thrown across
 * this interface but what the standard library throws where memory or threads run out: by Instance(), NewRoute() and
 * NewFIFO(). A request to a route that finds no memory fails with the result that stands for all refusals.
 *
 * When the process exits, routes that run get a tenth of a second to stop; then all FIFOs are shut down, and the routes
 * are stopped and deleted. What that cannot bring to an end:
 *
 * - a block that sleeps where nothing wakes it, in a device or a pipe say, or that does not return from Start() or
 *   SetParameter(): the process waits for it. Stop such a route yourself, with whatever wakes its block.
 * - a route that calls exit() itself, from a block or from Callbacks: it is left as it is, and no block of it is
 *   stopped. So is a route whose thread has gone: see Route::Start().
 *
 * FIFOs stay where they are, shut down, for threads that still use them. A child of fork() has none of the threads: it
 * must not use the framework, and leaves it alone when it exits. Let it end by exec() or _exit(): exit() writes once
 * more what open dump files hold back.
 *
 * The first call of Instance() reads /etc/vorn.conf:
 *
 *     [config]
 *     logtostdout=false
 *     logtostderr=true
 *     # 0 nothing, 2 errors, 3 warnings, 4 changes of state, 5 debugging, 6 every frame
 *     loglevel=4
 *     # the socket for looking: see docs/monitor.md
 *     monitor=true
 *     # folder of the dump files of every route, and of vorn.log
 *     dumppath=/tmp/dump
 *
 * (a comment needs a line of its own), and opens a console on a local socket: see vrdb(1).
 */
#ifndef VORN_VORN_H
#define VORN_VORN_H

#include <memory>

#include <vorn/Block.h>
#include <vorn/FIFO.h>
#include <vorn/Route.h>

namespace vorn {

/** The framework: one object a process. */
class VORN_API Vorn {
 public:
  /** The framework, made on the first call and destroyed when the process exits. Any thread. */
  static Vorn* Instance();

  /**
   * Makes a route; its thread waits for actions at once.
   *
   * @param name RouteA to RouteZ, not in use. @param callbacks may be null; not owned.
   * @return the route, or nullptr: the log says why. Valid until DeleteRoute; or until an operator deletes it at the
   *         console, of which only OnExit tells. The same goes for its blocks and links.
   * Throws std::system_error where no thread can be made, std::bad_alloc without memory; there is no route then.
   * Thread: one controlling thread makes and deletes routes and FIFOs.
   */
  virtual Route* NewRoute(const char* name, Route::Callbacks* callbacks) = 0;

  /**
   * Stops the route, deletes its blocks and links, ends its thread, unloads its plug-ins. Waits for all of it, so wake
   * blocks that sleep in a FIFO first (FIFO::Shutdown). A cycle without an end, of blocks that stay pending or form a
   * loop, is cut off. Null is ignored; a stranger is logged: a route that is gone already, for one.
   */
  virtual void DeleteRoute(Route* route) = 0;

  /**
   * Makes a FIFO, named fifo_ and the lowest free number.
   *
   * @param rate Hz, for the time stamps; 0: the FIFO keeps none. @param sampleSize bytes of one sample, all channels.
   * @param capacity samples that fit. @param prefill samples of silence it starts with; what is beyond the
   *        capacity, or below 0, does not count.
   * @return the FIFO, valid until DeleteFIFO.
   * Throws std::length_error for sizes that no memory holds, a negative capacity among them.
   * Thread: as NewRoute.
   */
  virtual FIFO* NewFIFO(unsigned int rate, unsigned long sampleSize, long capacity, long prefill) = 0;

  /** Deletes a FIFO that nobody uses any more. It is not shut down for you. Null is ignored; a stranger is logged. */
  virtual void DeleteFIFO(FIFO* fifo) = 0;

  virtual ~Vorn();

  /**
   * Keeps somebody else, an operator at the console above all, from deleting a route while the caller uses it: whoever
   * does waits until the last share is let go of. So keep one for a request, not for the life of the route.
   *
   * @return a share; null for a stranger, a route that is deleted or about to be, and one that is lost.
   * Thread: any but the route's own. Waiting: never, save for a lock.
   */
  std::shared_ptr<Route> HoldRoute(Route* route);

  /**
   * Whether the thread of a route has ended because a block that was added while it ran did not start (see
   * Route::Start). The route stays for the rest of the process: whatever is asked of it waits for ever, DeleteRoute
   * included. Nothing of it runs any more.
   */
  bool IsLost(Route* route) const;

  /**
   * Whether vrdb reaches this process: one process of a host, or of a container, has the console.
   *
   * Thread: any. Waiting: until the console has tried to open its socket, once.
   */
  bool HasConsole() const;
};

}  // namespace vorn

#endif
