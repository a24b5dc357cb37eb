#include "net/Socket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "net/SocketError.h"

namespace Zarn {

Socket::~Socket() {
    if (IsValid()) ::close(GetHandle());
}

int Socket::Close() {
    Handle handle = handle_.exchange(kInvalidHandle);
    if (handle == kInvalidHandle) return kInvalidHandle;
    int result = ::close(handle);
    if (result != 0) RecordSocketErrno();
    return result;
}

void Socket::Attach(Handle handle) {
    Handle previous = handle_.exchange(handle);
    if (previous != kInvalidHandle && previous != handle) ::close(previous);
}

void Socket::SetNonBlocking() {
    int flags = ::fcntl(GetHandle(), F_GETFL);
    if (flags < 0 || ::fcntl(GetHandle(), F_SETFL, flags | O_NONBLOCK) != 0) RecordSocketErrno();
}

void Socket::Shutdown() {
    Handle handle = GetHandle();
    if (handle != kInvalidHandle) ::shutdown(handle, SHUT_RDWR);
}

ssize_t Socket::RawSend(const void* buffer, size_t length, int flags) {
    ssize_t result = ::send(GetHandle(), buffer, length, flags | MSG_NOSIGNAL);
    if (result < 0) RecordSocketErrno();
    return result;
}

ssize_t Socket::RawReceive(void* buffer, size_t length, int flags) {
    ssize_t result = ::recv(GetHandle(), buffer, length, flags);
    if (result < 0) RecordSocketErrno();
    return result;
}

}  // namespace Zarn
