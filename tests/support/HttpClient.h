#pragma once

#include <map>
#include <string>

#include "core/StringUtil.h"
#include "support/LoopbackPair.h"
#include "support/TestServer.h"

namespace Zarn::testing {

// One parsed response of a request sent as raw bytes.
struct HttpResponse {
    int status = 0;
    std::string status_line;
    std::map<std::string, std::string> headers;  // names upper-cased
    std::string body;

    [[nodiscard]] std::string Header(const std::string& name) const {
        auto found = headers.find(ToUpperAscii(name));
        return found == headers.end() ? std::string() : found->second;
    }
};

inline HttpResponse ParseResponse(const std::string& bytes) {
    HttpResponse response;
    size_t head_end = bytes.find("\r\n\r\n");
    std::string head = bytes.substr(0, head_end);
    response.body = head_end == std::string::npos ? "" : bytes.substr(head_end + 4);
    size_t line_end = head.find("\r\n");
    response.status_line = head.substr(0, line_end);
    if (response.status_line.size() > 12)
        response.status = std::stoi(response.status_line.substr(9, 3));
    while (line_end != std::string::npos) {
        size_t next = head.find("\r\n", line_end + 2);
        std::string line = head.substr(
            line_end + 2, next == std::string::npos ? std::string::npos : next - line_end - 2);
        size_t colon = line.find(':');
        if (colon != std::string::npos) {
            response.headers[ToUpperAscii(Trim(line.substr(0, colon)))] =
                std::string(Trim(line.substr(colon + 1)));
        }
        line_end = next;
    }
    return response;
}

// Reads one response from the connection, its body as its head frames it: none for HEAD
// and 304, Content-Length bytes, chunks (returned de-chunked, with "chunked" recorded in
// `chunked`), or everything to the close.
inline HttpResponse ReadResponse(TCPSocket& socket, bool head_request = false,
                                 bool* chunked = nullptr) {
    HttpResponse response = ParseResponse(ReadHead(socket));
    if (chunked != nullptr) *chunked = false;
    if (head_request || response.status == 304 || response.status == 204) return response;
    if (ToLowerAscii(response.Header("Transfer-Encoding")).find("chunked") != std::string::npos) {
        if (chunked != nullptr) *chunked = true;
        for (;;) {
            std::string line;
            char c;
            while (!line.ends_with("\r\n") && socket.ReceiveAll(&c, 1) == 1)
                line += c;
            size_t size = std::stoul(line, nullptr, 16);
            response.body += ReadExactly(socket, size);
            (void)ReadExactly(socket, 2);
            if (size == 0) break;
        }
        return response;
    }
    if (!response.Header("Content-Length").empty()) {
        response.body = ReadExactly(socket, std::stoul(response.Header("Content-Length")));
        return response;
    }
    response.body = ReadToClose(socket);
    return response;
}

// Sends the raw request text (a blank line is added when it has none) and reads one
// response; the connection is dropped after it.
inline HttpResponse Fetch(int port, const std::string& request) {
    TCPSocket socket = ConnectTo(port);
    SendAll(socket, request.find("\r\n\r\n") == std::string::npos ? request + "\r\n\r\n" : request);
    return ReadResponse(socket, request.starts_with("HEAD "));
}

inline HttpResponse Get(int port, const std::string& target, const std::string& headers = "") {
    return Fetch(port, "GET " + target + " HTTP/1.1\r\nHost: test\r\n" + headers + "\r\n");
}

}  // namespace Zarn::testing
