// Reads a pipeline on one line: blocks with their arguments, joined by '!', or by '!!' for a cut between two threads.
//
//     filesource 'my song.wav' ! gain -6 ! filesink quiet.flac
#pragma once

#include <string_view>

#include "GraphDescription.h"

namespace vorn::graph {

/** Blocks are named as the library will name them: gain_0, gain_1 and so on. @param name how messages call the text. */
Result<GraphDescription> ReadOneLiner(std::string_view text, const std::string& name);

/** The name in a plug-in's text: gain for gain, libgain.so and ./x/libgain.so. */
std::string ShortPlugInName(std::string_view plugIn);

}  // namespace vorn::graph
