#include <cstring>

#include <vorn/Block.h>

#include "Link/Link.h"

namespace vorn {

Endpoint* Endpoint::Peer() const { return link ? link->PeerOf(this) : nullptr; }

void OutputEndpoint::Resize(long samplesPerFrame) { AttachedLink()->Reallocate(samplesPerFrame); }

void OutputEndpoint::Resize(long samples, const void* src, long timestamp) {
  AttachedLink()->Reallocate(samples);
  FrameBuffer& frame = *FB();
  const std::size_t bytes = frame.channels * static_cast<std::size_t>(samples) * BytesPerSample(frame.format);
  if (bytes > 0) std::memcpy(frame.data, src, bytes);
  frame.samples = samples;
  frame.timestamp = timestamp;
}

}  // namespace vorn
