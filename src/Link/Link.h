// A link joins an output of one block to an input of another, fixes the stream between them, and owns the bytes of the
// frame that both ends share.
#pragma once

#include <new>
#include <string>
#include <vector>

#include <vorn/Block.h>

namespace vorn {

class Link {
 public:
  Link(const std::string& routeName, const std::string& name, unsigned int rate, SampleFormat format,
       unsigned int channels, long samplesPerFrame);
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  // The thread of the route.

  /** 0 or more, or a negative number: an end is null or linked already, or its block refuses. All is undone then. */
  int Connect(OutputEndpoint* source, InputEndpoint* sink);
  /** Output side first. Safe on a link that is not connected. */
  void Disconnect();
  /** Changes the frame size. The link is connected. */
  void Reallocate(long samplesPerFrame);

  // For edits, which put a link elsewhere without a word to the blocks at its ends. Under the topology lock; no hook is
  // called, no memory asked for.

  /** Makes room for a frame, before the link is placed for the first time. Throws. */
  void MakeRoom() { buffer.resize(FrameBytes(samplesPerFrame)); }
  /** Makes these the ends of the link, and the link that of these endpoints. What was there before keeps pointing at it. */
  void Place(OutputEndpoint* source, InputEndpoint* sink);
  /** Says of an endpoint which link it has; null: none. */
  static void Hang(Endpoint& ep, Link* itsLink) { ep.link = itsLink; }
  /** Of this stream, in this link's memory; `samples` is 0. */
  FrameBuffer EmptyFrame();

  /** Carries the description of the frame to the other end: the one that the reader left, the one that the writer made. */
  void CommitBack() { sourceEp->fb = sinkEp->fb; }
  void CommitForth() { sinkEp->fb = sourceEp->fb; }

  Endpoint* PeerOf(const Endpoint* ep) const;

  // Fixed while connected: any thread that holds the topology lock.

  const std::string& Name() const { return name; }
  const OutputEndpoint* SourceEp() const { return sourceEp; }
  const InputEndpoint* SinkEp() const { return sinkEp; }

 private:
  /** Vectors of samples are read and written fastest where none lies on two lines of the cache. */
  template <class T>
  struct OnCacheLines {
    using value_type = T;
    static constexpr std::align_val_t LINE{64};

    T* allocate(std::size_t count) { return static_cast<T*>(::operator new(count * sizeof(T), LINE)); }
    void deallocate(T* memory, std::size_t) { ::operator delete(memory, LINE); }
    bool operator==(const OnCacheLines&) const = default;
  };

  std::size_t FrameBytes(long samples) const;
  void Attach(OutputEndpoint* source, InputEndpoint* sink);
  void DescribeEmptyFrame();
  void RollBack();
  template <class Ep>
  void Detach(Ep*& end, void (Block::*unlinked)(unsigned long));

  const std::string routeName;
  const std::string name;
  const unsigned int rate;
  const SampleFormat format;
  const unsigned int channels;
  long samplesPerFrame;
  OutputEndpoint* sourceEp = nullptr;
  std::vector<std::uint8_t, OnCacheLines<std::uint8_t>> buffer;
  InputEndpoint* sinkEp = nullptr;
};

}  // namespace vorn
