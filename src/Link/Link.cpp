#include "Link/Link.h"

#include <stdexcept>

#include "Block/Topology.h"
#include "Log.h"

namespace vorn {

Link::Link(const std::string& newRouteName, const std::string& newName, unsigned int newRate, SampleFormat newFormat,
           unsigned int newChannels, long newSamplesPerFrame)
    : routeName(newRouteName),
      name(newName),
      rate(newRate),
      format(newFormat),
      channels(newChannels),
      samplesPerFrame(newSamplesPerFrame) {}

Link::~Link() {
  Disconnect();
  LOG_I("%s: %s: Deleted", routeName.c_str(), name.c_str());
}

int Link::Connect(OutputEndpoint* source, InputEndpoint* sink) {
  if (!source || !sink) return -20;
  if (source->IsActive()) {
    LOG_E("%s: %s: %s's O%02zu has been already active", routeName.c_str(), name.c_str(),
          source->Owner()->Name().c_str(), source->Index());
    return -20;
  }
  if (sink->IsActive()) {
    LOG_E("%s: %s: %s's I%02zu has been already active", routeName.c_str(), name.c_str(), sink->Owner()->Name().c_str(),
          sink->Index());
    return -20;
  }
  buffer.resize(FrameBytes(samplesPerFrame));  // first of all: it may throw
  Attach(source, sink);
  DescribeEmptyFrame();

  Block& producer = *source->Owner();
  Block& consumer = *sink->Owner();
  int ret = producer.BaseOnOutEpLinked(source->Index());
  if (ret < 0) {
    LOG_E("%s: %s: Failed to link to %s's O%02zu", routeName.c_str(), name.c_str(), producer.Name().c_str(),
          source->Index());
    RollBack();
    return ret;
  }
  ret = consumer.BaseOnInEpLinked(sink->Index());
  if (ret < 0) {
    LOG_E("%s: %s: Failed to link to %s's I%02zu", routeName.c_str(), name.c_str(), consumer.Name().c_str(),
          sink->Index());
    producer.BaseOnOutEpUnlinked(source->Index());
    RollBack();
    return ret;
  }
  LOG_I("%s: %s: Created %s(O%02zu) --> (I%02zu)%s", routeName.c_str(), name.c_str(), producer.Name().c_str(),
        source->Index(), sink->Index(), consumer.Name().c_str());
  return 0;
}

void Link::Disconnect() {
  Detach(sourceEp, &Block::BaseOnOutEpUnlinked);
  Detach(sinkEp, &Block::BaseOnInEpUnlinked);
  buffer.clear();
}

void Link::Reallocate(long newSamplesPerFrame) {
  if (newSamplesPerFrame == samplesPerFrame) return;
  buffer.resize(FrameBytes(newSamplesPerFrame));
  samplesPerFrame = newSamplesPerFrame;
  for (FrameBuffer* frame : {&sourceEp->fb, &sinkEp->fb}) {
    frame->data = buffer.data();
    frame->samplesPerFrame = samplesPerFrame;
  }
}

Endpoint* Link::PeerOf(const Endpoint* ep) const { return ep == sourceEp ? static_cast<Endpoint*>(sinkEp) : sourceEp; }

std::size_t Link::FrameBytes(long samples) const {
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(channels * BytesPerSample(format), samples, &bytes)) {
    throw std::length_error("frame size out of range");
  }
  return bytes;
}

void Link::Attach(OutputEndpoint* source, InputEndpoint* sink) {
  const Topology::Lock lock;
  Place(source, sink);
}

void Link::Place(OutputEndpoint* source, InputEndpoint* sink) {
  sourceEp = source;
  sinkEp = sink;
  source->link = sink->link = this;
}

FrameBuffer Link::EmptyFrame() {
  FrameBuffer frame;
  frame.data = buffer.data();
  frame.format = format;
  frame.channels = channels;
  frame.samplesPerFrame = samplesPerFrame;
  frame.rate = rate;
  return frame;
}

void Link::DescribeEmptyFrame() {
  sourceEp->fb = EmptyFrame();
  CommitForth();
}

void Link::RollBack() {
  {
    const Topology::Lock lock;
    sourceEp->link = nullptr;
    sinkEp->link = nullptr;
    sourceEp = nullptr;
    sinkEp = nullptr;
  }
  buffer.clear();
}

template <class Ep>
void Link::Detach(Ep*& end, void (Block::*unlinked)(unsigned long)) {
  if (!end) return;
  const bool isOurs = end->link == this;  // an edit may have given it another link
  if (isOurs) (end->Owner()->*unlinked)(end->Index());
  const Topology::Lock lock;
  if (isOurs) end->link = nullptr;
  end = nullptr;
}

}  // namespace vorn
