#pragma once

#include <algorithm>
#include <ostream>
#include <sstream>
#include <string>

/// Takes what is written to a standard stream, as long as it lives, and counts the flushes.
class CapturedStream {
public:
    explicit CapturedStream(std::ostream& captured)
        : stream(captured), usualBuffer(captured.rdbuf(&buffer))
    {
    }
    ~CapturedStream() { stream.rdbuf(usualBuffer); }

    CapturedStream(const CapturedStream&) = delete;
    CapturedStream& operator=(const CapturedStream&) = delete;

    std::string text() const { return buffer.str(); }
    long lineEnds() const
    {
        const std::string all = text();
        return std::count(all.begin(), all.end(), '\n');
    }
    long flushes() const { return buffer.flushes; }

    /// True while the stream still leads here.
    bool isAttached() const { return stream.rdbuf() == &buffer; }

private:
    class Buffer : public std::stringbuf {
    public:
        long flushes = 0;

    private:
        int sync() override
        {
            ++flushes;
            return 0;
        }
    };

    std::ostream& stream;
    Buffer buffer;
    std::streambuf* usualBuffer;
};
