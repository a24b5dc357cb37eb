#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "skin/Crc32.h"

namespace Zarn {

// Writes a zip archive front to back into a sink, as it is made: stored entries (no
// compression), each file's CRC-32 computed from its bytes as they pass and written after
// them in a data descriptor, so nothing is held back but one small record per entry for
// the central directory. Entries of 4 GiB or more, offsets past 4 GiB and more than 65,534
// entries switch to the Zip64 forms. Names are UTF-8 and flagged so. One object per
// archive, used by one thread; the sink's exceptions pass through.
class ZipStreamWriter {
public:
    // `record`: a header, descriptor or directory record, small and followed at once by
    // more, so it may wait to leave with what comes next; file bytes and the archive's last
    // record are not.
    using Sink = std::function<void(std::string_view bytes, bool record)>;

    struct Entry {
        std::string name;   // "a/b.txt"; a folder's name ends in "/"
        uint64_t size = 0;  // the exact number of bytes Write will be given; 0 for a folder
        time_t modified = 0;
    };

    explicit ZipStreamWriter(Sink sink) : sink_(std::move(sink)) {}

    // Starts an entry; a folder's entry is complete at once.
    void Begin(const Entry& entry);
    // The next bytes of the file begun; all of them add up to its size.
    void Write(std::string_view bytes);
    // Ends the file begun: false, with nothing written, when Write was given another
    // number of bytes than its size promised.
    [[nodiscard]] bool End();
    // The central directory and the end records. Nothing may follow.
    void Finish();

    [[nodiscard]] uint64_t GetBytesWritten() const { return offset_; }

    // The exact length of the archive these entries make, for a Content-Length sent
    // before the first byte.
    [[nodiscard]] static uint64_t ArchiveSize(const std::vector<Entry>& entries);

private:
    // What the central directory needs of an entry; the names share one buffer.
    struct Record {
        uint64_t offset;
        uint64_t size;
        uint32_t crc;
        uint32_t dos_time;
        uint32_t name_at;
        uint16_t name_length;
        bool is_folder;
        bool utf8_name;
    };

    void Emit(std::string_view bytes, bool record = true);
    void WriteCentralRecord(const Record& record);
    void WriteEndRecords(uint64_t directory_offset, uint64_t directory_size);

    Sink sink_;
    uint64_t offset_ = 0;
    std::vector<Record> records_;
    std::string names_;
    Teko::Crc32 crc_;
    uint64_t written_ = 0;  // of the file begun
    bool in_file_ = false;
};

}  // namespace Zarn
