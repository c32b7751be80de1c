// The least that an exchange can cost: blocking sockets, the load one way, a receipt of 16 bytes
// back, and nothing else.
//
//     PlainExchange serve PORT                     until it is killed
//     PlainExchange measure HOST PORT BYTES COUNT  prints what ExchangeSeries prints

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t receiptSize = 16;

void demand(bool isTrue, const char* what)
{
    if (isTrue)
        return;
    std::perror(what);
    std::exit(1);
}

sockaddr_in addressOf(const char* host, const char* port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(std::atoi(port)));
    demand(::inet_pton(AF_INET, host, &address.sin_addr) == 1, host);
    return address;
}

void sendAll(int socket, const char* bytes, std::size_t length)
{
    while (length != 0) {
        const ssize_t sent = ::send(socket, bytes, length, MSG_NOSIGNAL);
        demand(sent > 0, "send");
        bytes += sent;
        length -= static_cast<std::size_t>(sent);
    }
}

// False if the peer has gone.
bool receiveAll(int socket, char* bytes, std::size_t length)
{
    while (length != 0) {
        const ssize_t received = ::recv(socket, bytes, length, 0);
        if (received <= 0)
            return false;
        bytes += received;
        length -= static_cast<std::size_t>(received);
    }
    return true;
}

void withoutDelay(int socket)
{
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

[[noreturn]] void serve(const char* port)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    const int on = 1;
    ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in address = addressOf("0.0.0.0", port);
    demand(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
           "bind");
    demand(::listen(listener, 8) == 0, "listen");
    for (;;) {
        const int peer = ::accept(listener, nullptr, nullptr);
        demand(peer >= 0, "accept");
        withoutDelay(peer);
        std::uint64_t size = 0;
        if (receiveAll(peer, reinterpret_cast<char*>(&size), sizeof size)) {
            std::vector<char> load(size);
            const char receipt[receiptSize] = {};
            while (receiveAll(peer, load.data(), load.size()))
                sendAll(peer, receipt, sizeof receipt);
        }
        ::close(peer);
    }
}

int measure(const char* host, const char* port, std::uint64_t size, long count)
{
    const int peer = ::socket(AF_INET, SOCK_STREAM, 0);
    const sockaddr_in address = addressOf(host, port);
    demand(::connect(peer, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
           "connect");
    withoutDelay(peer);
    sendAll(peer, reinterpret_cast<const char*>(&size), sizeof size);
    const std::vector<char> load(size, '0');
    char receipt[receiptSize];
    const auto begin = std::chrono::steady_clock::now();
    for (long i = 0; i < count; ++i) {
        sendAll(peer, load.data(), load.size());
        demand(receiveAll(peer, receipt, sizeof receipt), "receive");
    }
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - begin;
    const double mean = time.count() / static_cast<double>(count);
    std::printf("{\"mean_us\": %.3f, \"rate\": %.1f}\n", mean,
                static_cast<double>(size) * 8 / mean);
    return 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string_view what = argc > 1 ? argv[1] : "";
    if (what == "serve" && argc == 3)
        serve(argv[2]);
    if (what == "measure" && argc == 6)
        return measure(argv[2], argv[3], std::strtoul(argv[4], nullptr, 10), std::atol(argv[5]));
    std::fputs("PlainExchange serve PORT | measure HOST PORT BYTES COUNT\n", stderr);
    return 2;
}
