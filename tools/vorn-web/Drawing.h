// Where things are in the picture of a graph. Graphviz places them; the page draws them, and writes into them what
// moves.
#pragma once

#include <string>

#include "support/JsonMembers.h"

namespace vorn_web {

/** What of a reply to `graph` the picture depends on: a text that changes when the picture has to. */
std::string ShapeOf(const support::Json& graph);

/** From left to right; so, but each route at the left, one above the other; from top to bottom, for a narrow window. */
enum class Layout { WIDE, STACKED, TALL };

/** The graph in Graphviz's language: places without texts, so that nothing a process says gets into it. */
std::string ToDot(const support::Json& graph, Layout layout);

/**
 * The picture, in points with y downwards:
 *
 *     width, height
 *     routes  [{name, x, y, width, height}]                       the corner at the top left
 *     blocks  [{route, name, x, y, width, height}]
 *     fifos   [{name, x, y, width, height}]
 *     edges   [{path, text, textX, textY; route, link}]           path as in SVG; route and link where it is one
 *
 * Or `error` alone, where Graphviz fails or is not there.
 */
support::Json Draw(const support::Json& graph, Layout layout);

}  // namespace vorn_web
