#pragma once

namespace Diagnose {

/// Reads values that people type.
class ArgumentHelper {
public:
    /// Reads a size: decimal digits, then nothing or B, K, KB, M, MB, G, GB, T, TB, P or PB in
    /// either case, in powers of 1024. Returns false, and leaves `value`, for anything else: a
    /// sign, a fraction, something behind it, or a size beyond 64 bits.
    static bool decodeSizeArgument(const char* text, unsigned long& value);
};

}  // namespace Diagnose
