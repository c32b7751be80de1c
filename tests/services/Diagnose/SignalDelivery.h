#pragma once

namespace profileTests {

/// Why a thread does not copy its stack at once when it is asked to; null if it does. Then there is
/// no saying which samples come, or when.
constexpr const char* whyAnswersAreLate()
{
#if defined(__SANITIZE_THREAD__)
    return "the thread sanitizer takes signals itself, and calls handlers with the registers of "
           "that "
           "moment when the thread next enters the sanitizer, if it ever does";
#else
    return nullptr;
#endif
}

}  // namespace profileTests
