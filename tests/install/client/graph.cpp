// graph TALLY: runs tally -> gain -> tally as a pipeline, where the gain is the installed one.
#include <vorn/Graph.h>

#include <cstdio>

int main(int, char** argv) {
  const std::string tally = argv[1];
  vorn::Graph graph = vorn::Graph::FromPipeline(tally + " ! gain 0 ! " + tally);
  const vorn::Graph::Result result = graph.Run();
  if (result.error) std::fprintf(stderr, "%s\n", result.error->ToString().c_str());
  std::printf("graph: %s\n", result.Name());
  return result.end == vorn::Graph::End::STREAM ? 0 : 1;
}
