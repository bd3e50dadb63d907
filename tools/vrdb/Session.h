#pragma once

#include "Shell.h"

namespace vrdb {

/** Reads commands from the terminal, with history and completion, until its user leaves. @return the exit code. */
int RunSession(Shell& shell);

}  // namespace vrdb
