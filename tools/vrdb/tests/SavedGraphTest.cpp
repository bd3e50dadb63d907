// What a running graph becomes as a file, from what the monitor says.
#include <gtest/gtest.h>

#include <algorithm>

#include "SavedGraph.h"

namespace vrdb {
namespace {

using support::Json;

Json Block(const char* name, const char* label, const char* plugIn, Json args, bool first, bool last) {
  return {{"name", name}, {"label", label}, {"plugIn", plugIn}, {"args", args}, {"first", first}, {"last", last}};
}

Json Link(const char* from, int out, const char* to, int in) {
  return {{"name", "lnk_0"},
          {"from", {{"block", from}, {"port", out}}},
          {"to", {{"block", to}, {"port", in}}},
          {"rate", 8000},
          {"format", "S24_3LE"},
          {"channels", 1},
          {"samplesPerFrame", 80}};
}

Json Parameter(const char* name, const char* value, bool given, const char* access = "live") {
  return {{"name", name}, {"value", value}, {"given", given}, {"access", access}};
}

// Red if the text depends on the order in which things are told, a name or an argument reads back as another one, a
// default or a reading is written, or an end that does not follow from the links is not.
TEST(SavedGraph, ReadsBackAsItWas) {
  const Json blocks = {Block("mix_0", "", "libmix.so", {"unused"}, false, true),
                       Block("x_0", "say \"$1\"", "./x.so", {"it's", "50%", "a\\", ""}, true, false),
                       Block("tone_10", "", "libtone.so", Json::array(), true, false),
                       Block("tone_9", "", "libtone.so", Json::array(), true, false),
                       Block("last_0", "tone_9", "liblast.so", Json::array(), true, true)};
  const Json links = {Link("x_0", 2, "mix_0", 0), Link("tone_10", 0, "mix_0", 2), Link("tone_9", 0, "mix_0", 1),
                      Link("mix_0", 0, "last_0", 0)};
  const Json parameters = {
      {"routes",
       {{{"name", "RouteA"},
         {"blocks",
          {{{"name", "mix_0"},
            {"parameters",
             {Parameter("gain", "-6", true), Parameter("label", "$x", true), Parameter("pan", "0", false),
              Parameter("peak", "-3", true, "read"), Parameter("end", "\\", true)}}}}}}}}};
  const Json graph = {{"routes", {{{"name", "RouteA"}, {"status", "running"}, {"blocks", blocks}, {"links", links}}}}};
  const SavedGraph saved = SaveGraph(graph, parameters, "/here");
  const std::string stream = " [rate=8000, format=S24_3LE, channels=1, frame=80]\n";
  EXPECT_EQ(saved.text,
            "// A running graph, as vrdb saved it.\n// Relative paths in it start from /here\n"
            "digraph saved {\n  rankdir=LR\n  node [shape=box]\n"
            "  subgraph cluster_RouteA {\n    label=RouteA\n"
            "    tone_9 [block=tone]\n"
            "    tone_10 [block=tone]\n"
            "    \"say \\\"$1\\\"\" [block=\"./x.so\", args=\"'it'\\''s' 50% 'a\\' ''\"]\n"
            "    mix_0 [block=mix, args=\"label=$$x 'end=\\'\", gain=-6, last=true]\n"
            "    last_0 [block=last, first=true]\n"
            "    tone_9 -> mix_0:1" +
                stream + "    tone_10 -> mix_0:2" + stream + "    \"say \\\"$1\\\"\":2 -> mix_0:0" + stream +
                "    mix_0 -> last_0" + stream + "  }\n}\n");
  EXPECT_TRUE(saved.leftOut.empty());
  Json turned = graph;
  for (const char* list : {"blocks", "links"}) {
    Json& order = turned["routes"][0][list];
    std::reverse(order.begin(), order.end());
  }
  EXPECT_EQ(SaveGraph(turned, parameters, "/here").text, saved.text);
}

// Red if what a file cannot say is not said, brings a terminal or the file out of step, or ends this program.
TEST(SavedGraph, SaysWhatItLeavesOut) {
  Json nobody = Block("odd\n\x1b_0", "", "", nullptr, false, false);
  nobody.erase("args");
  const Json fifos = {{{"name", "fifo_1"},
                       {"capacity", 9},
                       {"writer", Json::object()},
                       {"reader", {{"route", "RouteA"}, {"block", "fifosource_0"}}}}};
  const Json blocks = {nobody, Block("fifosource_0", "in", "libfifosource.so", {"\xEF\xBF\xBD"}, true, false)};
  const Json graph = {{"routes",
                       {{{"name", "RouteA"}, {"status", "broken"}, {"blocks", blocks}, {"links", Json::array()}},
                        {{"name", "RouteB"}, {"status", "stopped"}, {"blocks", Json::array()}}}},
                      {"fifos", fifos}};
  const SavedGraph saved = SaveGraph(graph, Json::object(), "");
  const char* const parts[] = {"links of RouteA that were missing",
                               "RouteB, which has no blocks",
                               "bytes of an argument of 'in'",
                               "the arguments of 'RouteA_block_1'",
                               "that 'in' is not last",
                               "fifo_1, which no block writes and 'in' reads"};
  for (const char* part : parts) {
    EXPECT_NE(saved.text.find(std::string("// Left out: ") + part), std::string::npos) << part << '\n' << saved.text;
  }
  for (const Json& nonsense : {Json(), Json(3), Json{{"routes", 3}}, Json{{"routes", {3, nullptr}}}}) {
    EXPECT_EQ(SaveGraph(nonsense, nonsense, "").text, "");
  }
}

}  // namespace
}  // namespace vrdb
