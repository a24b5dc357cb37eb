#include "net/socket_exception.h"

#include "net/SocketError.h"

namespace Zarn {

socket_exception::socket_exception() : text_(ErrorText(LastSocketError())) {}

}  // namespace Zarn
