// Who is to blame when the program ends otherwise than by its own will. One line on standard error names the route and
// the block whose code was running:
//
// - when the program crashes, which then goes on as ever: a core file, a status that tells of the signal;
// - when nobody catches an exception: a lack of memory then ends with status 1, all others as an abort;
// - when a plug-in ends the process, with status 1: the run was not at its end.
//
// The first two need no call.
#pragma once

namespace vorn::run {

/** Names who exits from now on. The latest such handler is called first: call this again when others were added. */
void NameWhoExits();

}  // namespace vorn::run
