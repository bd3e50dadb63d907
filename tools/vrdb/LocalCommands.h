/** The commands that vrdb does itself. See the table of commands. */
#pragma once

#include "Shell.h"
#include "Words.h"

namespace vrdb {

Result RunStatus(Shell& shell, const Words& words);     // StatusCommand.cpp
Result RunParameter(Shell& shell, const Words& given);  // Parameters.cpp
Result RunParams(Shell& shell, const Words& words);
Result RunWhy(Shell& shell, const Words& words);  // LookCommands.cpp
Result RunTiming(Shell& shell, const Words& words);
Result RunEvents(Shell& shell, const Words& words);
Result RunLog(Shell& shell, const Words& words);
Result RunProcesses(Shell& shell, const Words& words);
Result RunHelp(Shell& shell, const Words& words);
Result RunQuit(Shell& shell, const Words& words);
Result RunTop(Shell& shell, const Words& words);    // Top.cpp
Result RunGraph(Shell& shell, const Words& words);  // GraphPicture.cpp

/** The options among the words; another word is what the result complains about. */
Result ReadFlags(const Words& words, const Words& known, Words& given);

}  // namespace vrdb
