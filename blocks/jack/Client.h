// A client of a JACK server (or of PipeWire in its place): ports on one side, a ring of interleaved floats on the
// other.
//
// Threads: the server's thread calls OnProcess(), moves samples between the ports and the ring, and signals an event;
// it waits for nothing. The route's thread waits for that event, and for its host's interrupt.
#pragma once

#include <jack/jack.h>
#include <jack/ringbuffer.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <vorn/Plugin.h>

namespace jack {

enum ClientParameters : unsigned { NAME, CHANNELS, CONNECT, SERVER, LATENCY, XRUNS };

/** The parameters that both blocks have. */
void DescribeClient(vorn::Description& description, const char* connectHelp);

class Client {
 public:
  /** `portFlags`: JackPortIsInput for ports that record, JackPortIsOutput for ports that play. */
  explicit Client(JackPortFlags portFlags);
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /** Connects to the server without ports. Starts none. */
  vorn::Refusal Connect(const vorn::Parameters& parameters);
  /** Makes the ports for a stream, and joins them to others as CONNECT says. */
  vorn::Refusal Activate(const vorn::Parameters& parameters, const vorn::FrameBuffer& stream);
  void Close();

  unsigned Rate() const { return jack_get_sample_rate(client.get()); }

  enum class Result { DONE, TIMEOUT, INTERRUPTED, SERVER_GONE };

  /** Interleaved floats of all channels; waits until the server has brought, or taken, enough. */
  Result Read(float* to, std::size_t floats, vorn::Interrupt& interrupt);
  Result Write(const float* from, std::size_t floats, vorn::Interrupt& interrupt);
  /** What is there at once. @return how many floats. */
  std::size_t ReadRest(float* to, std::size_t most);
  /** Waits until the server has taken all that was written. @return false: it was interrupted before. */
  bool Flush(vorn::Interrupt& interrupt);

  /** Times that the server found the ring full or empty. */
  long Xruns() const { return xruns.load(std::memory_order_relaxed); }

 private:
  struct ClientCloser {
    void operator()(jack_client_t* open) const { jack_client_close(open); }
  };
  struct RingFreer {
    void operator()(jack_ringbuffer_t* ring) const { jack_ringbuffer_free(ring); }
  };

  static int OnProcess(jack_nframes_t frames, void* self);
  static void OnShutdown(void* self);
  void Record(jack_nframes_t frames);
  void Play(jack_nframes_t frames);
  vorn::Refusal Join(const std::string& pattern);
  Result WaitForCycle(vorn::Interrupt& interrupt);
  template <class Ready>
  Result WaitUntil(vorn::Interrupt& interrupt, Ready ready);

  const JackPortFlags flags;
  std::unique_ptr<jack_client_t, ClientCloser> client;
  std::vector<jack_port_t*> ports;
  std::unique_ptr<jack_ringbuffer_t, RingFreer> ring;
  std::vector<float> scratch;  // one cycle, interleaved; the server's thread alone
  const int cycles;            // an eventfd, which the server's thread makes readable
  std::atomic<bool> isGone{false};
  std::atomic<bool> isPlaying{false};  // a ring that ran dry before its first samples came is no underrun
  std::atomic<long> xruns{0};
};

/**
 * Closes a client and puts a new one in its place. A server that is stopped does not answer: after an interrupt the old
 * one is left to a thread of its own, and so to the end of the process.
 */
void CloseClient(std::shared_ptr<Client>& client, JackPortFlags portFlags, vorn::Interrupt& interrupt);

}  // namespace jack
