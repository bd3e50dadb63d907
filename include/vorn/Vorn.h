/**
 * Vorn runs audio graphs inside your process.
 *
 *     #include <future>
 *     #include <vorn/Vorn.h>
 *
 *     struct Ending : vorn::Route::Callbacks {
 *       std::promise<void> stopped;
 *       void OnStopped(vorn::Route::StopReason) override { stopped.set_value(); }
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
 * this interface but what the standard library throws where memory or threads run out.
 *
 * The first call of Instance() reads /etc/vorn.conf:
 *
 *     [config]
 *     logtostdout=false
 *     logtostderr=true
 *     # 0 nothing, 2 errors, 3 warnings, 4 changes of state, 5 debugging, 6 every frame
 *     loglevel=4
 *     # folder of the dump files of every route, and of vorn.log
 *     dumppath=/tmp/dump
 *
 * (a comment needs a line of its own), and opens a console on a local socket: see vrdb(1).
 */
#ifndef VORN_VORN_H
#define VORN_VORN_H

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
   * @return the route, valid until DeleteRoute, or nullptr: the log says why.
   * Thread: one controlling thread makes and deletes routes and FIFOs.
   */
  virtual Route* NewRoute(const char* name, Route::Callbacks* callbacks) = 0;

  /**
   * Stops the route, deletes its blocks and links, ends its thread, unloads its plug-ins. Waits for all of it, so wake
   * blocks that sleep in a FIFO first (FIFO::Shutdown). Null is ignored; a stranger is logged.
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
};

}  // namespace vorn

#endif
