#include <cstdio>
#include <new>

#include <vorn/Block.h>

#include "Block/SampleFormat.h"
#include "Link/Link.h"
#include "Log.h"

namespace vorn {

int Block::CommitFrame() {
  for (InputEndpoint* ep : linkedInEps) ep->link->CommitBack();
  for (OutputEndpoint* ep : linkedOutEps) {
    ep->link->CommitForth();
    if (!dumpPath->empty()) DumpFrame(*ep);
  }
  return 0;
}

void Block::DumpFrame(const OutputEndpoint& ep) {
  std::FILE*& file = dumpFiles[ep.index];
  if (!file) file = OpenDump(ep);
  const FrameBuffer& frame = ep.fb;
  if (!file || frame.samples <= 0) return;
  const std::size_t sampleSize = frame.channels * BytesPerSample(frame.format);
  std::fwrite(frame.data, sampleSize, static_cast<std::size_t>(frame.samples), file);
}

std::FILE* Block::OpenDump(const OutputEndpoint& ep) const try {
  char endpoint[sizeof "-O00"];
  std::snprintf(endpoint, sizeof endpoint, "-O%02zu", ep.index);
  const FrameBuffer& frame = ep.fb;
  const std::string path = *dumpPath + routeName + "-" + name + endpoint + "-" + std::to_string(frame.rate) + "Hz" +
                           "-" + FormatToString(frame.format) + "-" + std::to_string(frame.channels) + "ch" + ".pcm";
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file)
    LOG_FROM('D', "CommitFrame", "%s: %s: Unable to open %s to dump data", routeName.c_str(), name.c_str(),
             path.c_str());
  return file;
} catch (const std::bad_alloc&) {
  return nullptr;  // a dump is not worth the end of the route: the next frame tries again
}

void Block::CloseDump() {
  for (std::FILE*& file : dumpFiles) {
    if (file) std::fclose(file);
    file = nullptr;
  }
}

}  // namespace vorn
