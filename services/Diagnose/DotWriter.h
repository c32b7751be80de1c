#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Diagnose/CallGraph.h"

namespace Diagnose {

/// A text as it stands between quotation marks in a dot file: it is shown as it is, whatever it
/// holds. Control characters and bytes that are not UTF-8 become question marks.
std::string escapedForDot(std::string_view text);

/// The graph in the dot format below a title of the given lines. Each node shows its function, its
/// own share and its total share of the samples; outermost functions have a double border, the
/// hottest path is red. A function's whole name is the node's tooltip.
std::string toDot(const CallGraph& graph, const std::vector<std::string>& title);

}  // namespace Diagnose
