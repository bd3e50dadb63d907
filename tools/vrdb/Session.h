#ifndef VRDB_SESSION_H
#define VRDB_SESSION_H

#include "Shell.h"

namespace vrdb {

/** Reads commands from the terminal, with history and completion, until its user leaves. @return the exit code. */
int RunSession(Shell& shell);

}  // namespace vrdb

#endif
