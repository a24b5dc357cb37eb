#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Teko {

// A zip archive held in memory, such as the built-in skin. Load() copies the bytes, checks
// the archive's structure and indexes entry names; Extract() decompresses one entry and
// checks its CRC-32. It reads what a skin archive needs, stored and deflate entries, and
// refuses the rest: ZIP64, encryption, archives split over disks, other methods.
// Every length and offset in the archive is checked against the bytes before use, and an
// entry is decompressed into a buffer of its declared size only after that size passed
// kMaxEntrySize and kMaxCompressionRatio, so a hostile archive costs an error, not memory.
// Load() must not overlap other calls; after it, any number of threads may call the rest.
class Unzip {
public:
    // A skin is a page template, style sheets and images; nothing in one comes near this.
    static constexpr uint64_t kMaxEntrySize = 64u * 1024 * 1024;
    // Deflate spends at least two bits on a 258-byte match, so no honest entry expands more.
    // A larger declared ratio is a lie, and refusing it keeps a tiny archive from making us
    // allocate up to kMaxEntrySize.
    static constexpr uint64_t kMaxCompressionRatio = 1032;

    enum class ExtractResult {
        kOk,
        kNotFound,
        kUnsupported,       // encrypted, or a method other than stored and deflate
        kTooLarge,          // above kMaxEntrySize or kMaxCompressionRatio
        kCorrupt,           // a deflate error, or sizes that contradict each other
        kChecksumMismatch,  // decompressed in full, but the CRC-32 differs
    };

    // Replaces whatever was loaded. False, leaving no entries, when the bytes hold no single
    // end-of-central-directory record at their very end, when any central directory record or
    // the local header it points to lies outside the bytes, or when two entries' data
    // overlap (one compressed stream counted many times is a known zip bomb).
    [[nodiscard]] bool Load(const void* bytes, size_t length);

    // Every central directory record, duplicates and folders ("name/") included.
    [[nodiscard]] size_t EntryCount() const { return entries_.size(); }
    // In the order of the central directory.
    [[nodiscard]] std::vector<std::string> EntryNames() const;

    // The bytes of the entry with exactly this name; of the first one when the name repeats.
    // A folder entry extracts as its (empty) contents.
    [[nodiscard]] ExtractResult Extract(std::string_view name, std::string& bytes) const;
    // The same, with every failure as nullopt.
    [[nodiscard]] std::optional<std::string> Extract(std::string_view name) const;

private:
    struct Entry {
        std::string name;
        uint16_t flags = 0;
        uint16_t method = 0;
        uint32_t crc = 0;
        uint32_t compressed_size = 0;
        uint32_t uncompressed_size = 0;
        uint32_t header_offset = 0;
        uint64_t data_offset = 0;
    };

    [[nodiscard]] bool ReadDirectory(size_t directory_offset, size_t directory_size,
                                     size_t entry_count);
    [[nodiscard]] bool ReadEntry(size_t& position, size_t directory_offset, size_t directory_end);
    [[nodiscard]] bool LocateData(Entry& entry, size_t directory_offset) const;
    [[nodiscard]] bool HasOverlappingData() const;
    [[nodiscard]] ExtractResult Decompress(const Entry& entry, std::string& bytes) const;

    std::string archive_;
    std::vector<Entry> entries_;
    std::map<std::string, size_t, std::less<>> index_;
};

}  // namespace Teko
