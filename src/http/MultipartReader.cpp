#include "http/MultipartReader.h"

#include <algorithm>
#include <cstring>

#include "core/StringUtil.h"

namespace Zarn {
namespace {

// Splits at ";" outside double quotes, so that a file name holding ";" stays whole.
std::vector<std::string_view> SplitParameters(std::string_view value) {
    std::vector<std::string_view> pieces;
    bool quoted = false;
    size_t start = 0;
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '"') quoted = !quoted;
        if (value[i] == ';' && !quoted) {
            pieces.push_back(value.substr(start, i - start));
            start = i + 1;
        }
    }
    pieces.push_back(value.substr(start));
    return pieces;
}

std::string_view Unquote(std::string_view text) {
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        return text.substr(1, text.size() - 2);
    }
    return text;
}

// A raw LF (or CR LF) ends the header line, so a quoted value that held one arrives
// without its closing quote; a lone CR stays in the value.
bool IsMalformedValue(std::string_view text) {
    bool unclosed = text.starts_with('"') && (text.size() < 2 || !text.ends_with('"'));
    return unclosed || text.find_first_of("\r\n") != std::string_view::npos;
}

}  // namespace

MultipartReader::MultipartReader(std::string_view boundary, Source source)
    : delimiter_("\r\n--" + std::string(boundary)), source_(std::move(source)) {
    buffer_.resize(kBlockBytes + delimiter_.size());
    // The header's final line break stands in front of the body, so that the first
    // delimiter has the same "\r\n--" form as every later one.
    buffer_[0] = '\r';
    buffer_[1] = '\n';
    end_ = 2;
    if (boundary.empty()) state_ = State::kBroken;
}

bool MultipartReader::Fill() {
    limit_known_ = false;
    if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    if (source_done_ || end_ == buffer_.size()) return false;
    size_t room = std::min(buffer_.size() - end_, kBlockBytes);
    size_t got = source_(buffer_.data() + end_, room);
    if (got == 0) {
        source_done_ = true;
        return false;
    }
    end_ += std::min(got, room);
    return true;
}

size_t MultipartReader::Find(std::string_view what) const {
    if (end_ - begin_ < what.size()) return std::string::npos;
    const void* found = ::memmem(buffer_.data() + begin_, end_ - begin_, what.data(), what.size());
    if (found == nullptr) return std::string::npos;
    return static_cast<size_t>(static_cast<const char*>(found) - buffer_.data());
}

size_t MultipartReader::DelimiterTailStart() const {
    size_t from = std::max(begin_, end_ - std::min(end_, delimiter_.size() - 1));
    for (size_t p = from; p < end_; ++p) {
        if (std::memcmp(buffer_.data() + p, delimiter_.data(), end_ - p) == 0) return p;
    }
    return end_;
}

bool MultipartReader::SkipToFirstDelimiter() {
    for (;;) {
        size_t found = Find(delimiter_);
        if (found != std::string::npos) {
            begin_ = found + delimiter_.size();
            state_ = State::kAfterDelimiter;
            return true;
        }
        begin_ = DelimiterTailStart();  // the preamble is thrown away
        if (!Fill()) return false;
    }
}

bool MultipartReader::ReadNextPart(MultipartPart& part) {
    if (state_ == State::kPartData) {
        char scratch[4096];
        bool part_ended = false;
        while (!part_ended)
            ReadPartData(scratch, sizeof scratch, part_ended);
    }
    if (state_ == State::kPreamble && !SkipToFirstDelimiter()) state_ = State::kBroken;
    if (state_ != State::kAfterDelimiter) return false;
    while (end_ - begin_ < 2) {
        if (!Fill()) {
            state_ = State::kBroken;
            return false;
        }
    }
    if (buffer_[begin_] == '-' && buffer_[begin_ + 1] == '-') {
        state_ = State::kEnd;
        return false;
    }
    if (!ReadPartHeader(part)) {
        state_ = State::kBroken;
        return false;
    }
    state_ = State::kPartData;
    return true;
}

bool MultipartReader::ReadPartHeader(MultipartPart& part) {
    constexpr std::string_view kTerminator = "\r\n\r\n";
    size_t found;
    while ((found = Find(kTerminator)) == std::string::npos) {
        if (!Fill()) return false;  // the body ended, or the header outgrew the block
    }
    part = MultipartPart{};
    std::string_view text(buffer_.data() + begin_, found - begin_);
    while (!text.empty()) {
        size_t newline = text.find('\n');
        RequestHead::ParseHeaderLine(text.substr(0, newline), part.headers);
        text = newline == std::string_view::npos ? std::string_view() : text.substr(newline + 1);
    }
    part.headers.erase(std::string());  // the rest of the delimiter line
    auto disposition = part.headers.find("CONTENT-DISPOSITION");
    if (disposition != part.headers.end()) ParseDisposition(disposition->second, part);
    begin_ = found + kTerminator.size();
    return true;
}

size_t MultipartReader::ReadPartData(char* buffer, size_t length, bool& part_ended) {
    part_ended = false;
    if (state_ != State::kPartData) {
        part_ended = true;
        return 0;
    }
    if (length == 0) return 0;
    for (;;) {
        // One scan per block, however small the pieces the caller asks for.
        if (!limit_known_) {
            size_t found = Find(delimiter_);
            limit_is_delimiter_ = found != std::string::npos;
            limit_ = limit_is_delimiter_ ? found : DelimiterTailStart();
            limit_known_ = true;
        }
        if (limit_ > begin_) {
            size_t count = std::min(limit_ - begin_, length);
            std::memcpy(buffer, buffer_.data() + begin_, count);
            begin_ += count;
            return count;
        }
        limit_known_ = false;
        if (limit_is_delimiter_) {
            begin_ = limit_ + delimiter_.size();
            state_ = State::kAfterDelimiter;
            part_ended = true;
            return 0;
        }
        if (!Fill()) {
            state_ = State::kBroken;
            part_ended = true;
            return 0;
        }
    }
}

void MultipartReader::ParseDisposition(std::string_view value, MultipartPart& part) {
    for (std::string_view piece : SplitParameters(value)) {
        size_t equals = piece.find('=');
        if (equals == std::string_view::npos) continue;
        std::string name = ToUpperAscii(Trim(piece.substr(0, equals)));
        std::string_view raw = Trim(piece.substr(equals + 1));
        std::string_view text = Unquote(raw);
        if (name == "NAME") {
            part.name = std::string(text);
        } else if (name == "FILENAME") {
            part.has_malformed_file_name = IsMalformedValue(raw);
            if (part.has_malformed_file_name && text.starts_with('"')) text.remove_prefix(1);
            part.file_name = std::string(text);
            part.has_file_name = true;
        }
    }
}

}  // namespace Zarn
