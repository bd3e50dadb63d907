// gst N: the least that a chain can cost in GStreamer, which is a pair of pads for each step whose chain function
// pushes on. A row as of graph: name, N, nanoseconds a buffer (median, least, most), those of the processor.
#include <gst/gst.h>

#include "Measure.h"

namespace {

using namespace bench;

GstFlowReturn PassOn(GstPad* pad, GstObject*, GstBuffer* buffer) {
  return gst_pad_push(static_cast<GstPad*>(gst_pad_get_element_private(pad)), buffer);
}
gboolean PassOnEvent(GstPad* pad, GstObject*, GstEvent* event) {
  return gst_pad_push_event(static_cast<GstPad*>(gst_pad_get_element_private(pad)), event);
}
GstFlowReturn Drop(GstPad*, GstObject*, GstBuffer* buffer) { return gst_buffer_unref(buffer), GST_FLOW_OK; }
gboolean DropEvent(GstPad*, GstObject*, GstEvent* event) { return gst_event_unref(event), TRUE; }

GstPad* Activated(GstPad* pad) { return gst_pad_set_active(pad, TRUE), pad; }
GstPad* MakeSource() { return Activated(gst_pad_new("src", GST_PAD_SRC)); }
GstPad* MakeSink(GstPadChainFunction chain, GstPadEventFunction event, GstPad* behind) {
  GstPad* pad = gst_pad_new("sink", GST_PAD_SINK);
  gst_pad_set_chain_function(pad, chain);
  gst_pad_set_event_function(pad, event);
  gst_pad_set_element_private(pad, behind);
  return Activated(pad);
}
void Join(GstPad* source, GstPad* sink) {
  if (gst_pad_link(source, sink) != GST_PAD_LINK_OK) Die("no link");
}

GstPad* MakeChain(long count) {
  GstPad* const first = MakeSource();
  GstPad* last = first;
  for (long i = 0; i < count; ++i) {
    GstPad* const behind = MakeSource();
    Join(last, MakeSink(PassOn, PassOnEvent, behind));
    last = behind;
  }
  Join(last, MakeSink(Drop, DropEvent, nullptr));
  GstSegment segment;
  gst_segment_init(&segment, GST_FORMAT_TIME);
  gst_pad_push_event(first, gst_event_new_stream_start("bench"));
  gst_pad_push_event(first, gst_event_new_caps(gst_caps_new_empty_simple("audio/x-raw")));
  gst_pad_push_event(first, gst_event_new_segment(&segment));
  return first;
}

GstBufferPool* MakePool() {
  GstBufferPool* pool = gst_buffer_pool_new();
  GstStructure* config = gst_buffer_pool_get_config(pool);
  gst_buffer_pool_config_set_params(config, nullptr, 1920, 4, 4);
  gst_buffer_pool_set_config(pool, config);
  return gst_buffer_pool_set_active(pool, TRUE), pool;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(nullptr, nullptr);
  const long count = argc == 2 ? std::atol(argv[1]) : 8;
  const long frames = Length(3'000'000 / (count + 2));
  GstPad* const chain = MakeChain(count);
  GstBufferPool* const pool = MakePool();
  const Runs runs = Repeat(static_cast<double>(frames), [&](Mark& from, Mark& to) {
    from = Mark::Now();
    for (long f = 0; f < frames; ++f) {
      GstBuffer* buffer = nullptr;
      if (gst_buffer_pool_acquire_buffer(pool, &buffer, nullptr) != GST_FLOW_OK) Die("no buffer");
      GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(f) * 10 * GST_MSECOND;
      if (gst_pad_push(chain, buffer) != GST_FLOW_OK) Die("a buffer was not taken");
    }
    to = Mark::Now();
  });
  std::printf("gstreamer, minimal element\t%ld\t", count);
  runs.Print();
  std::printf("\n");
}
