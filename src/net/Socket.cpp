#include "net/Socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net/SocketError.h"

namespace Zarn {

Socket::~Socket() {
    if (IsValid()) ::close(handle_);
}

int Socket::Close() {
    if (!IsValid()) return kInvalidHandle;
    int result = ::close(std::exchange(handle_, kInvalidHandle));
    if (result != 0) RecordSocketErrno();
    return result;
}

void Socket::Attach(Handle handle) {
    if (IsValid() && handle != handle_) ::close(handle_);
    handle_ = handle;
}

void Socket::SetNonBlocking() {
    int flags = ::fcntl(handle_, F_GETFL);
    if (flags < 0 || ::fcntl(handle_, F_SETFL, flags | O_NONBLOCK) != 0) RecordSocketErrno();
}

void Socket::Shutdown() {
    if (IsValid()) ::shutdown(handle_, SHUT_RDWR);
}

ssize_t Socket::RawSend(const void* buffer, size_t length, int flags) {
    ssize_t result = ::send(handle_, buffer, length, flags | MSG_NOSIGNAL);
    if (result < 0) RecordSocketErrno();
    return result;
}

ssize_t Socket::RawReceive(void* buffer, size_t length, int flags) {
    ssize_t result = ::recv(handle_, buffer, length, flags);
    if (result < 0) RecordSocketErrno();
    return result;
}

}  // namespace Zarn
