#pragma once

#include <string>
#include <vector>

namespace Zarn::testing {

// A multipart/form-data body as a browser builds it.
struct FormPart {
    std::string field;
    std::string file_name;  // empty: a plain field without a filename parameter
    std::string content;
};

inline constexpr const char* kBoundary = "----LumidropTestBoundary7MA4YWxkTrZu0gW";

inline std::string MultipartBody(const std::vector<FormPart>& parts) {
    std::string body;
    for (const FormPart& part : parts) {
        body += std::string("--") + kBoundary + "\r\nContent-Disposition: form-data; name=\"" +
                part.field + "\"";
        if (!part.file_name.empty() || part.field == "uploadfile") {
            body +=
                "; filename=\"" + part.file_name + "\"\r\nContent-Type: application/octet-stream";
        }
        body += "\r\n\r\n" + part.content + "\r\n";
    }
    return body + "--" + kBoundary + "--\r\n";
}

// The head of a post of such a body to the target.
inline std::string MultipartHead(const std::string& target, size_t body_length) {
    return "POST " + target +
           " HTTP/1.1\r\nHost: test\r\nContent-Type: multipart/form-data; boundary=" + kBoundary +
           "\r\nContent-Length: " + std::to_string(body_length) + "\r\n\r\n";
}

}  // namespace Zarn::testing
