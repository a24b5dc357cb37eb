#include "net/SocketError.h"

#include <cerrno>
#include <iterator>

namespace Zarn {
namespace {

struct ErrorRow {
    int code;
    const char* text;
};

constexpr ErrorRow kErrorTable[] = {
    {10004, "Interrupted function call"},
    {10013, "Permission denied"},
    {10014, "Bad address"},
    {10022, "Invalid argument"},
    {10024, "Too many open files"},
    {10035, "Socket would block"},
    {10036, "Operation now in progress"},
    {10037, "Operation already in progress"},
    {10038, "Socket operation on nonsocket"},
    {10039, "Destination address required"},
    {10040, "Message too long"},
    {10041, "Protocol wrong type for socket"},
    {10042, "Bad protocol option"},
    {10043, "Protocol not supported"},
    {10044, "Socket type not supported"},
    {10045, "Operation not supported"},
    {10046, "Protocol family not supported"},
    {10047, "Address family not supported by protocol family"},
    {10048, "Address already in use"},
    {10049, "Cannot assign requested address"},
    {10050, "Network is down"},
    {10051, "Network is unreachable"},
    {10052, "Network dropped connection on reset"},
    {10053, "Software caused connection abort"},
    {10054, "Connection reset by peer"},
    {10055, "No buffer space available"},
    {10056, "Socket is already connected"},
    {10057, "Socket is not connected"},
    {10058, "Cannot send after socket shutdown"},
    {10060, "Connection timed out"},
    {10061, "Connection refused"},
    {10064, "Host is down"},
    {10065, "No route to host"},
    {10067, "Too many processes"},
    {10091, "Network subsystem is unavailable"},
    {10092, "Winsock.dll version out of range"},
    {10093, "Successful WSAStartup not yet performed"},
    {10101, "Graceful shutdown in progress"},
    {10109, "Class type not found"},
    {11001, "Host not found"},
    {11002, "Nonauthoritative host not found"},
    {11003, "This is a nonrecoverable error"},
    {11004, "Valid name, no data record of requested type"},
    {6, "Specified event object handle is invalid"},
    {87, "One or more parameters are invalid"},
    {996, "Overlapped I/O event object not in signaled state"},
    {997, "Overlapped operations will complete later"},
    {8, "Insufficient memory available"},
    {995, "Overlapped operation aborted"},
    {10107, "System call failure"},
};

struct ErrnoRow {
    int error;
    int code;
};

constexpr ErrnoRow kErrnoTable[] = {
    {EINTR, 10004},
    {EACCES, 10013},
    {EPERM, 10013},
    {EFAULT, 10014},
    {EINVAL, 10022},
    {EMFILE, 10024},
    {ENFILE, 10024},
    {EAGAIN, 10035},
    {EINPROGRESS, 10036},
    {EALREADY, 10037},
    {ENOTSOCK, 10038},
    // A closed descriptor is what Windows reports as an operation on a nonsocket.
    {EBADF, 10038},
    {EDESTADDRREQ, 10039},
    {EMSGSIZE, 10040},
    {EPROTOTYPE, 10041},
    {ENOPROTOOPT, 10042},
    {EPROTONOSUPPORT, 10043},
    {ESOCKTNOSUPPORT, 10044},
    {EOPNOTSUPP, 10045},
    {EPFNOSUPPORT, 10046},
    {EAFNOSUPPORT, 10047},
    {EADDRINUSE, 10048},
    {EADDRNOTAVAIL, 10049},
    {ENETDOWN, 10050},
    {ENETUNREACH, 10051},
    {ENETRESET, 10052},
    {ECONNABORTED, 10053},
    // Linux reports a send to a peer that has gone away as EPIPE; Windows calls the same
    // event an aborted connection.
    {EPIPE, 10053},
    {ECONNRESET, 10054},
    {ENOBUFS, 10055},
    {EISCONN, 10056},
    {ENOTCONN, 10057},
    {ESHUTDOWN, 10058},
    {ETIMEDOUT, 10060},
    {ECONNREFUSED, 10061},
    {EHOSTDOWN, 10064},
    {EHOSTUNREACH, 10065},
    {ENOMEM, 8},
    {ECANCELED, 995},
};

thread_local int last_socket_error = 0;

}  // namespace

const char* ErrorText(int code) {
    for (const ErrorRow& row : kErrorTable) {
        if (row.code == code) return row.text;
    }
    return "Unknown error";
}

int SocketErrorFromErrno(int error) {
    for (const ErrnoRow& row : kErrnoTable) {
        if (row.error == error) return row.code;
    }
    return 0;
}

int LastSocketError() {
    return last_socket_error;
}

void SetLastSocketError(int code) {
    last_socket_error = code;
}

int RecordSocketErrno() {
    last_socket_error = SocketErrorFromErrno(errno);
    return last_socket_error;
}

static_assert(std::size(kErrorTable) == 50, "the error table has fifty rows");

}  // namespace Zarn
