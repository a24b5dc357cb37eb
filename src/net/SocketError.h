#pragma once

namespace Zarn {

// Socket failures are reported with the Windows Sockets error codes and texts that users
// of this program have always seen ("Connection reset by peer" is 10054). errno values
// are translated once, where a socket call fails.

// The text for a socket error code, or "Unknown error".
[[nodiscard]] const char* ErrorText(int code);

// The socket error code matching an errno value (ECONNRESET gives 10054); errno values
// with no matching code give 0, whose text is "Unknown error".
[[nodiscard]] int SocketErrorFromErrno(int error);

// The code of the last failed socket call on this thread, like WSAGetLastError().
[[nodiscard]] int LastSocketError();
void SetLastSocketError(int code);
// Records the current errno as this thread's last socket error and returns the code.
int RecordSocketErrno();

}  // namespace Zarn
