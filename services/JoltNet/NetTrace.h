#pragma once

#include <string_view>

#include "Diagnose/TraceTopic.h"

namespace JoltNet {

/// Traces one line of the network engine.
void trace(Diagnose::TraceLevel level, std::string_view what, std::string_view detail);

}  // namespace JoltNet
