#pragma once

#include <iostream>
#include <sstream>
#include <string>

namespace unitTests {

/// Takes what is written to an output stream, until the end of its scope. What reaches the
/// descriptor without the stream is not seen; see inChild for that.
class CapturedOutput {
public:
    explicit CapturedOutput(std::ostream& captured = std::cout)
        : stream(captured), original(captured.rdbuf(&buffer))
    {
    }
    /// Also clears the error state that the captured code may have left.
    ~CapturedOutput()
    {
        stream.rdbuf(original);
        stream.clear();
    }

    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    std::string text() const { return buffer.str(); }

private:
    std::ostream& stream;
    std::stringbuf buffer;
    std::streambuf* original;
};

}  // namespace unitTests
