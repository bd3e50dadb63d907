/**
 * What every channel that leaves `remap` is made of, and the little language that says it.
 *
 *     map     = output { "/" output }               outputs, from output 0 on
 *     output  = part { "," part }                   its channels, from channel 0 on
 *     part    = "_"                                 a silent channel
 *             | source ".." channel                 several channels, one after the other, up or down
 *             | ["-"] term { ("+" | "-") term }     one channel
 *     term    = source [ "*" factor ]
 *     source  = [ input ":" ] channel               from input 0 unless it is said
 *     factor  = number [ "dB" ]
 *
 *     1,0            swaps the two channels of a stream
 *     0              picks the left one
 *     0,0            makes a mono stream stereo
 *     0:0,1:0        joins two mono inputs
 *     0/1            splits a stereo stream to two mono outputs
 *     4..7           picks the last four of eight
 *     0*0.5+1*0.5    mixes two channels down to one
 *     0+2*-3dB,1+2*-3dB,_    adds a centre to left and right, and a silent channel
 *
 * Blanks between the signs are skipped.
 */
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/** One channel of one input, times a factor. */
struct Term {
  std::size_t input;
  std::size_t channel;
  double factor;
};

using Channel = std::vector<Term>;         ///< their sum; without a term: silence
using ChannelList = std::vector<Channel>;  ///< an output
using ChannelMap = std::vector<ChannelList>;

/** Throws std::invalid_argument with what was expected where. */
ChannelMap ParseChannelMap(const std::string& text);

/** Whether every channel is that of an input as it stands, or silence. */
bool OnlyMoves(const ChannelList& output);

/** How many channels of this input the map needs; 0 when it takes none. */
std::size_t ChannelsNeeded(const ChannelMap& map, std::size_t input);
