/** The commands that vrdb does itself, most of them on top of one the console has. See the table of commands. */
#pragma once

#include "Shell.h"
#include "Words.h"

namespace vrdb {

Result RunStatus(Shell& shell, const Words& words);
Result RunParameter(Shell& shell, const Words& words);
Result RunParams(Shell& shell, const Words& words);
Result RunHelp(Shell& shell, const Words& words);
Result RunQuit(Shell& shell, const Words& words);
Result RunTop(Shell& shell, const Words& words);    // Top.cpp
Result RunGraph(Shell& shell, const Words& words);  // GraphPicture.cpp

}  // namespace vrdb
