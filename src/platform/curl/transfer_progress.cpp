#include "platform/curl/transfer_progress.h"

#include <fcntl.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tarvex::platform {

SocketProgress::~SocketProgress() {
    end();
}

void SocketProgress::end() noexcept {
    for (const int socket : sockets_)
        close(socket);
    sockets_.clear();
}

void SocketProgress::watch(int socket) noexcept {
    const int duplicate = fcntl(socket, F_DUPFD_CLOEXEC, 0);
    if (duplicate >= 0) sockets_.push_back(duplicate);
}

std::uint64_t SocketProgress::acknowledgedBytes() const {
    std::uint64_t total = 0;
    for (const int socket : sockets_) {
        tcp_info info{};
        socklen_t length = sizeof info;
        if (getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &length) == 0) total += info.tcpi_bytes_acked;
    }
    return total;
}

}  // namespace tarvex::platform
