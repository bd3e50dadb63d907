/** Edits: changes that are carried out between two cycles, whole or not at all. */
#pragma once

#include <string>

#include "Shell.h"
#include "Words.h"

namespace vrdb {

/** `insert`, `remove`, `replace`, `tap` and `edit`. */
Result RunEdit(Shell& shell, const Words& words);

/** The words of `edit` as the monitor takes them: blanks inside words and a ';' at their ends part them, in braces. */
Words NormalizeEdit(const Words& words);

/** Why a command cannot be part of an edit, in one line; empty: it can. */
std::string WrongInEdit(const Words& command);

/**
 * Puts names in place of labels in a request that edits, which may be several commands in braces.
 *
 * @param routes takes the names of all routes that are touched.
 * @return what is wrong; empty: nothing.
 */
std::string ResolveInEdit(const Json& graph, Words& request, Words& routes);

/** "Made gain_1, lnk_4; deleted lnk_2", as a line. */
std::string WhatWasDone(const Json& answer);

}  // namespace vrdb
