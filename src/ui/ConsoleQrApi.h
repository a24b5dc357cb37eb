#pragma once

namespace Zarn {

class HttpRequest;

// The console's "qr" endpoint: the QR Code of the query's "text" as an SVG image, so the
// home view can show the visitors' address for a phone to scan. Holds nothing; any
// connection thread may call it.
class ConsoleQrApi {
public:
    // Answers 400 in JSON, naming the field "text", when the text is empty or more than
    // the largest symbol holds.
    static void Send(HttpRequest& request);
};

}  // namespace Zarn
