// Plug-ins of the swh collection in the block, against a formula and against the same plug-in run by hand.
#include <gtest/gtest.h>
#include <lilv/lilv.h>

#include "testkit/LogFile.h"
#include "testkit/Samples.h"
#include "testkit/TestGraph.h"

namespace {

using testkit::Graph;
using Samples = std::vector<float>;
using Channels = std::vector<Samples>;
using Controls = std::map<std::string, float>;

const std::string SWH = "http://plugin.org.uk/swh-plugins/";
constexpr long LENGTH = 4801;

testkit::StreamSpec Floats(unsigned channels, long frame) { return testkit::Floats(48000, channels, frame); }

// Loud, each channel another.
Channels Noise(std::size_t channels) {
  const auto numbers = testkit::RandomNumbers(vorn::SampleFormat::FLOAT_LE, channels * LENGTH);
  Channels noise(channels);
  for (std::size_t i = 0; i < numbers.size(); ++i) noise[i % channels].push_back(static_cast<float>(numbers[i]));
  return noise;
}

Samples Interleaved(const Channels& channels) {
  Samples x;
  for (std::size_t i = 0; i < channels[0].size(); ++i) {
    for (const Samples& channel : channels) x.push_back(channel[i]);
  }
  return x;
}

// What comes out later, when `heard` comes in after silence. Controls that are not given have their defaults.
Samples ByHand(const std::string& name, Controls controls, const Channels& heard, std::size_t later = 0) {
  LilvWorld* world = lilv_world_new();
  lilv_world_load_all(world);
  LilvNode* uri = lilv_new_uri(world, (SWH + name).c_str());
  LilvNode* audio = lilv_new_uri(world, LILV_URI_AUDIO_PORT);
  LilvNode* input = lilv_new_uri(world, LILV_URI_INPUT_PORT);
  const LilvPlugin* plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), uri);
  LilvInstance* instance = lilv_plugin_instantiate(plugin, 48000, nullptr);
  const std::uint32_t count = lilv_plugin_get_num_ports(plugin);
  Samples defaults(count);
  lilv_plugin_get_port_ranges_float(plugin, nullptr, nullptr, defaults.data());
  Channels in, out;
  in.reserve(count), out.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const LilvPort* port = lilv_plugin_get_port_by_index(plugin, i);
    const std::string symbol = lilv_node_as_string(lilv_port_get_symbol(plugin, port));
    Channels& channels = lilv_port_is_a(plugin, port, input) ? in : out;
    float* memory = lilv_port_is_a(plugin, port, audio) ? channels.emplace_back(LENGTH + later).data()
                                                        : &controls.try_emplace(symbol, defaults[i]).first->second;
    lilv_instance_connect_port(instance, i, memory);
  }
  lilv_instance_activate(instance);
  lilv_instance_run(instance, 512);
  lilv_instance_deactivate(instance);
  lilv_instance_activate(instance);
  for (std::size_t i = 0; i < heard.size(); ++i) std::copy(heard[i].begin(), heard[i].end(), in[i].begin());
  lilv_instance_run(instance, static_cast<std::uint32_t>(LENGTH + later));
  lilv_instance_free(instance);
  for (LilvNode* node : {uri, audio, input}) lilv_node_free(node);
  lilv_world_free(world);
  for (Samples& channel : out) channel.erase(channel.begin(), channel.begin() + static_cast<long>(later));
  return Interleaved(out);
}

class Lv2Test : public testing::Test {
 protected:
  static void SetUpTestSuite() { setenv("LV2_PATH", (BUNDLES / ".:/usr/lib/lv2").c_str(), 1); }

  Samples Run(const std::vector<std::string>& args, const Channels& in, unsigned outputs, long frame,
              const Channels& side = {}) {
    graph->DeleteAll();
    block = graph.Add("lv2", args, in.empty());
    vorn::Block* sink = graph.Add("testsink", in.empty() ? std::vector<std::string>{"10"} : std::vector<std::string>{});
    EXPECT_TRUE(graph.Link(block, 0, sink, 0, Floats(outputs, frame + 1)));
    std::size_t input = 0;
    for (const Channels& channels : {in, side}) {
      if (channels.empty()) continue;
      graph.Feed(block, input++, Interleaved(channels), Floats(static_cast<unsigned>(channels.size()), frame));
    }
    EXPECT_EQ(graph.Run(), testkit::END_OF_FILE);
    return Graph::RecordedFloats(sink);
  }

  inline static const testkit::Folder BUNDLES;  // of plug-ins that are broken
  testkit::LogFile log;
  Graph graph;
  vorn::Block* block = nullptr;  // of the last run
};

// Red if a sample is lost or doubled at the end, channels change places, or a side chain is not what is listened to.
TEST_F(Lv2Test, DoesWhatThePlugInDoes) {
  const Channels three = Noise(3);
  const Channels two = Noise(2);
  const Samples plain = Interleaved(three);
  const std::vector<std::string> ducks{SWH + "sc3", "chain_bal=1", "threshold=-30", "ratio=10"};
  const Controls by{{"chain_bal", 1.0F}, {"threshold", -30.0F}, {"ratio", 10.0F}};
  for (const long frame : {1L, 7L, 480L, 1201L}) {
    const Samples amplified = Run({SWH + "amp", "gain=6"}, three, 3, frame);
    ASSERT_EQ(amplified.size(), plain.size());
    for (std::size_t i = 0; i < plain.size(); ++i) ASSERT_NEAR(amplified[i], plain[i] * std::pow(10, 0.3), 1e-5) << i;
    EXPECT_EQ(Run(ducks, two, 2, frame, {three[2]}), ByHand("sc3", by, {three[2], two[0], two[1]}));
    EXPECT_EQ(Run(ducks, two, 2, frame), ByHand("sc3", by, {two[0], two[0], two[1]}));

    const Samples circle = Run({SWH + "sinCos"}, {}, 2, frame);
    ASSERT_EQ(circle.size(), 20U * static_cast<std::size_t>(frame + 1));
    EXPECT_EQ(circle[1], 1);
    for (std::size_t i = 0; i < circle.size(); i += 2) ASSERT_NEAR(std::hypot(circle[i], circle[i + 1]), 1, 1e-6) << i;
  }
}

// Red if the delay is left in, or the end with it.
TEST_F(Lv2Test, TakesTheDelayOut) {
  for (const long frame : {1L, 7L, 480L, 1201L}) {
    const Samples limited = Run({SWH + "lookaheadLimiter", "limit=-6", "delay_s=0.02"}, Noise(2), 2, frame);
    EXPECT_EQ(limited, ByHand("lookaheadLimiter", {{"limit", -6.0F}, {"delay_s", 0.02F}}, Noise(2), 960)) << frame;
    EXPECT_EQ(graph.Numbers(block)["latency"], 960);
    EXPECT_NE(limited, Interleaved(Noise(2)));
  }
}

// Red if a control jumps, or does not arrive within the frame.
TEST_F(Lv2Test, MovesAControlOverOneFrame) {
  block = graph.Add("lv2", {SWH + "amp"});
  graph.Feed(block, 0, Samples(960, 1), Floats(1, 480));
  vorn::Block* sink = graph.Record(block, 0, Floats(1, 480));
  ASSERT_TRUE(graph.RunAfterSetting(block, 1, "-40"));
  const Samples x = Graph::RecordedFloats(sink);
  ASSERT_EQ(x.size(), 960U);
  EXPECT_LT(x[0] - x[479], 1);
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double progress = std::min(1.0, (std::floor(static_cast<double>(i) / 16) + 1) / 30);
    ASSERT_NEAR(x[i], std::pow(10, -2 * progress), 1e-5) << i;
  }
}

// Each is broken in one way. Red if one runs all the same, or the log does not say why it does not.
TEST_F(Lv2Test, SaysWhatIsWrongWithAPlugIn) {
  const auto bundle = [&](const std::string& name, const std::string& port, const std::string& more = "") {
    std::filesystem::create_directory(BUNDLES / name + ".lv2");
    testkit::Write(BUNDLES / name + ".lv2/manifest.ttl",
                   "@prefix lv2: <http://lv2plug.in/ns/lv2core#> . @prefix doap: <http://usefulinc.com/ns/doap#> .\n"
                   "<urn:test:" +
                       name + "> a lv2:Plugin ; doap:name \"" + name +
                       "\" ; lv2:binary <none.so> ; lv2:port [ a lv2:InputPort, " + port +
                       " ; lv2:index 0 ; lv2:symbol \"in\" ; lv2:name \"in\" ]" + more + " .\n");
  };
  bundle("needy", "lv2:AudioPort", " ; lv2:requiredFeature <urn:test:magic>");
  bundle("missing", "lv2:AudioPort");
  bundle("odd", "<urn:test:Odd>");
  for (const auto& [uri, line] :
       {std::pair<std::string, std::string>{"urn:test:needy",
                                            "it needs the feature urn:test:magic, which is not known here"},
        {"urn:test:odd", "its port 'in' is of a kind that is not known here"},
        {"urn:test:none", "not installed; takes one of those that 'lv2ls' lists\n"},
        {"amp", "not installed; takes one of those that 'lv2ls' lists, such as " + SWH + "amp\n"}}) {
    EXPECT_EQ(graph.Add("lv2", {uri}), nullptr);
    EXPECT_TRUE(log.Has("LV2 plug-in '" + uri + "': " + line)) << log.Text();
  }
  EXPECT_EQ(graph.Add("lv2", {SWH + "amp", "gian=3"}), nullptr);
  EXPECT_TRUE(log.Has("argument 'gian': unknown; takes uri gain")) << log.Text();
  ASSERT_TRUE(graph.Chain({graph.Add("testsource"), graph.Add("lv2", {"urn:test:missing"})}, Floats(1, 480)));
  EXPECT_EQ(graph->Start(), -20);
  EXPECT_TRUE(log.Has("LV2 plug-in 'urn:test:missing': cannot be loaded, or not run at 48000 Hz")) << log.Text();
}

}  // namespace
