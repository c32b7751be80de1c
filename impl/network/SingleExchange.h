#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iostream>

#include "Basis/Containers.h"
#include "Basis/PerformanceCounter.h"
#include "JoltNet/Configuration.h"
#include "impl/network/Receiver.h"

namespace vetraTests {

/// Says on standard error, once for a peer, that it has sent back less than it was sent.
void sayReplyIsShort(const string& host, unsigned short port, std::size_t sent, std::size_t back);

/// Has the header of a request written, or read if it comes in.
template <class Request>
void settleHeader(Request& request)
{
    if (request.isHeaderDone())
        return;
    if (!request.isIncoming()) {
        request.writeHeader();
        return;
    }
    while (!request.readHeader(request.channel(), true))
        continue;
}

/// One timed exchange: sends `payload` under a name, waits until the peer has it, and with
/// `readBack` until one string has come back, which is no longer than what was sent.
///
/// Connecting lies before the clock, closing behind it. `receiver`, which may be null, fetches its
/// bytes meanwhile. With `checkResponse` one more string is read, which must be `sendSize` as a
/// decimal number. Returns microseconds, or -1 if that is another number. Throws
/// JoltNet::NetException.
template <class Request>
long doSingleTestWithString(unsigned long sendSize, const string* payload,
                            const string& requestName, const string& host, unsigned short port,
                            bool checkResponse, bool readBack, Receiver* receiver)
{
    const bool isSecure = JoltNet::Configuration::isSecure();
    Request request(requestName.c_str(), host.c_str(), port, static_cast<char>(isSecure));

    // Room for what comes back: to make it is no part of the exchange.
    string reply(readBack ? payload->size() : 0, '\0', payload->get_allocator());

    const long begin = _pcounter(1);
    if (receiver)
        receiver->start();
    settleHeader(request);
    request.writer().transferString(*payload);
    auto& reader = request.in();
    if (receiver)
        receiver->join();
    if (readBack) {
        settleHeader(request);
        reader.transferString(reply, payload->size());
    }
    const long duration = _pdiff_muesec(1, begin, _pcounter(1));
    if (readBack && reply.size() < payload->size())
        sayReplyIsShort(host, port, payload->size(), reply.size());
    if (!checkResponse)
        return duration;

    // No number is longer.
    constexpr std::uint64_t mostDigits = 20;
    string response(payload->get_allocator());
    reader.transferString(response, mostDigits);
    unsigned long receivedSize = 0;
    std::from_chars(response.data(), response.data() + response.size(), receivedSize);
    if (receivedSize == sendSize)
        return duration;
    std::cout << "Received wrong response: SendSize = " << sendSize
              << " ReceiveSize = " << receivedSize << std::endl;
    return -1;
}

}  // namespace vetraTests
