// The header values a request handler reads after the head is split: dates of conditional
// requests, credentials, and the resumable upload protocol's numbers and metadata.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "http/AuthenticationInfo.h"
#include "http/HttpDate.h"
#include "server/ResumableUpload.h"
#include "server/TusRequestProcessor.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);

    // A date we read is one we can write, and what we write reads back to the same time.
    if (const auto time = HttpDate::Parse(text)) {
        const std::string written = HttpDate::Format(*time);
        const auto again = HttpDate::Parse(written);
        if (!again || *again != *time) __builtin_trap();
    }

    const AuthenticationInfo info = AuthenticationInfo::Parse(text);
    if (info.scheme == AuthenticationInfo::Scheme::kDigest &&
        (!info.user_name.empty() || !info.password.empty())) {
        __builtin_trap();
    }

    // Offsets and lengths are digits only; anything else must not read as a number.
    if (const auto number = ResumableUpload::ParseNumber(text)) {
        if (text.empty()) __builtin_trap();
        for (char c : text) {
            if (c < '0' || c > '9') __builtin_trap();
        }
        std::string_view digits = text;
        while (digits.size() > 1 && digits.front() == '0')
            digits.remove_prefix(1);
        // A number too large for 64 bits must be refused, not wrapped.
        if (std::to_string(*number) != digits) __builtin_trap();
    }

    for (bool show_hidden : {false, true}) {
        if (const auto name = TusRequestProcessor::NameOf(std::string(text), show_hidden)) {
            if (name->empty() || name->find('/') != std::string::npos) __builtin_trap();
        }
    }
    return 0;
}
