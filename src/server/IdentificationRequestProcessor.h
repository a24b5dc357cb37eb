#pragma once

#include <string>

namespace Zarn {

class HttpRequest;

// Answers "?action=identify" with the server's instance identifier: 16 lower-case
// hexadecimal digits made once at start-up, the same for every request of one run.
class IdentificationRequestProcessor {
public:
    // Makes the identifier; called once at start-up, before the first request.
    static void MakeInstanceIdentifier();
    [[nodiscard]] static std::string GetInstanceIdentifier();

    void Identify(HttpRequest& request);
};

}  // namespace Zarn
