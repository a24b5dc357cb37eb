#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "http/RequestHead.h"

namespace Zarn {

// One part of a multipart/form-data body: its own header lines and the two
// Content-Disposition parameters an upload needs.
struct MultipartPart {
    HeaderMap headers;
    std::string name;       // NAME: the form field
    std::string file_name;  // FILENAME: the client's file name, as sent (or as far as read)
    bool has_file_name = false;
    // FILENAME opens a quote it never closes or holds a raw line break, so what was read
    // of it is not the name the client meant: the part must not be stored under it.
    bool has_malformed_file_name = false;
};

// Walks a multipart body part by part, pulling bytes from a source in blocks of at most
// 10,240 bytes and never holding more than one block (plus a delimiter) in memory,
// whatever the size of a part. Part data is handed out in pieces; only the bytes that
// could be the start of the next delimiter are kept back.
//
// A body that ends before its closing delimiter, or whose part header does not fit in a
// block, is broken: the reader reports the end of the current part and then of the body,
// and IsBroken() tells the caller that what it got is incomplete.
// One object is used by one thread.
class MultipartReader {
public:
    static constexpr size_t kBlockBytes = 10240;
    // Fills the buffer with up to `length` bytes of the body; 0 at its end.
    using Source = std::function<size_t(char* buffer, size_t length)>;

    MultipartReader(std::string_view boundary, Source source);

    // Moves to the next part, skipping what is left of the current one. False at the end
    // of the body (and when it is broken).
    [[nodiscard]] bool ReadNextPart(MultipartPart& part);
    // The next piece of the current part's data. Returns 0 and sets `part_ended` when the
    // part is over; a non-zero count always leaves `part_ended` false.
    size_t ReadPartData(char* buffer, size_t length, bool& part_ended);

    [[nodiscard]] bool IsComplete() const { return state_ == State::kEnd; }
    [[nodiscard]] bool IsBroken() const { return state_ == State::kBroken; }

    // Reads a Content-Disposition value into the part's name and file name, and tells
    // whether the file name is malformed.
    static void ParseDisposition(std::string_view value, MultipartPart& part);

private:
    enum class State { kPreamble, kAfterDelimiter, kPartData, kEnd, kBroken };

    [[nodiscard]] bool Fill();
    [[nodiscard]] size_t Find(std::string_view what) const;
    [[nodiscard]] size_t DelimiterTailStart() const;
    [[nodiscard]] bool SkipToFirstDelimiter();
    [[nodiscard]] bool ReadPartHeader(MultipartPart& part);

    std::string delimiter_;
    Source source_;
    std::vector<char> buffer_;
    size_t begin_ = 0;
    size_t end_ = 0;
    bool source_done_ = false;
    // Where the part's data that may be handed out ends in the buffer, and whether a
    // delimiter starts there; valid until the buffer moves.
    size_t limit_ = 0;
    bool limit_is_delimiter_ = false;
    bool limit_known_ = false;
    State state_ = State::kPreamble;
};

}  // namespace Zarn
