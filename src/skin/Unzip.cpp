#include "skin/Unzip.h"

#include <algorithm>
#include <utility>

#include "skin/Crc32.h"
#include "skin/Inflater.h"

namespace Teko {
namespace {

constexpr uint32_t kEndSignature = 0x06054B50u;
constexpr uint32_t kCentralSignature = 0x02014B50u;
constexpr uint32_t kLocalSignature = 0x04034B50u;
constexpr size_t kEndRecordSize = 22;
constexpr size_t kCentralRecordSize = 46;
constexpr size_t kLocalHeaderSize = 30;
constexpr size_t kMaxCommentSize = 0xFFFF;
// ZIP64 puts these in the 16- and 32-bit fields and the real values elsewhere.
constexpr uint16_t kZip64Count = 0xFFFF;
constexpr uint32_t kZip64Size = 0xFFFFFFFFu;
constexpr uint16_t kEncryptedFlag = 0x0001;
constexpr uint16_t kMethodStored = 0;
constexpr uint16_t kMethodDeflate = 8;

// Callers have checked that the field lies inside the bytes.
uint16_t ReadLe16(std::string_view bytes, size_t offset) {
    return static_cast<uint16_t>(static_cast<unsigned char>(bytes[offset]) |
                                 static_cast<unsigned char>(bytes[offset + 1]) << 8);
}

uint32_t ReadLe32(std::string_view bytes, size_t offset) {
    return ReadLe16(bytes, offset) | static_cast<uint32_t>(ReadLe16(bytes, offset + 2)) << 16;
}

struct EndRecord {
    size_t offset = 0;
    size_t entry_count = 0;
    size_t directory_size = 0;
    size_t directory_offset = 0;
};

// The record's comment runs to the end of the archive, so of the places where the signature
// appears, the record is the last one whose comment length lands exactly on the end. That
// rule also keeps a comment that happens to contain the signature from being taken for it.
std::optional<EndRecord> FindEndRecord(std::string_view archive) {
    if (archive.size() < kEndRecordSize) return std::nullopt;
    size_t last = archive.size() - kEndRecordSize;
    size_t first = last > kMaxCommentSize ? last - kMaxCommentSize : 0;
    for (size_t offset = last + 1; offset-- > first;) {
        if (ReadLe32(archive, offset) != kEndSignature) continue;
        if (offset + kEndRecordSize + ReadLe16(archive, offset + 20) != archive.size()) continue;
        EndRecord record{.offset = offset,
                         .entry_count = ReadLe16(archive, offset + 10),
                         .directory_size = ReadLe32(archive, offset + 12),
                         .directory_offset = ReadLe32(archive, offset + 16)};
        bool single_disk = ReadLe16(archive, offset + 4) == 0 &&
                           ReadLe16(archive, offset + 6) == 0 &&
                           ReadLe16(archive, offset + 8) == record.entry_count;
        bool zip64 = record.entry_count == kZip64Count || record.directory_size == kZip64Size ||
                     record.directory_offset == kZip64Size;
        if (!single_disk || zip64) return std::nullopt;
        return record;
    }
    return std::nullopt;
}

}  // namespace

bool Unzip::Load(const void* bytes, size_t length) {
    entries_.clear();
    index_.clear();
    archive_.clear();
    if (bytes == nullptr || length == 0) return false;
    archive_.assign(static_cast<const char*>(bytes), length);

    std::optional<EndRecord> end = FindEndRecord(archive_);
    bool loaded = end.has_value() && end->directory_offset <= end->offset &&
                  end->directory_size <= end->offset - end->directory_offset &&
                  ReadDirectory(end->directory_offset, end->directory_size, end->entry_count) &&
                  !HasOverlappingData();
    if (!loaded) {
        entries_.clear();
        index_.clear();
        archive_.clear();
    }
    return loaded;
}

bool Unzip::ReadDirectory(size_t directory_offset, size_t directory_size, size_t entry_count) {
    // Checked before reserving, so a made-up count cannot make us reserve much.
    if (entry_count > directory_size / kCentralRecordSize) return false;
    entries_.reserve(entry_count);
    size_t position = directory_offset;
    for (size_t i = 0; i < entry_count; ++i) {
        if (!ReadEntry(position, directory_offset, directory_offset + directory_size)) {
            return false;
        }
    }
    return true;
}

bool Unzip::ReadEntry(size_t& position, size_t directory_offset, size_t directory_end) {
    std::string_view archive = archive_;
    if (directory_end - position < kCentralRecordSize) return false;
    if (ReadLe32(archive, position) != kCentralSignature) return false;
    size_t name_length = ReadLe16(archive, position + 28);
    size_t record_size = kCentralRecordSize + name_length + ReadLe16(archive, position + 30) +
                         ReadLe16(archive, position + 32);
    if (record_size > directory_end - position || ReadLe16(archive, position + 34) != 0) {
        return false;
    }
    Entry entry{.name = std::string(archive.substr(position + kCentralRecordSize, name_length)),
                .flags = ReadLe16(archive, position + 8),
                .method = ReadLe16(archive, position + 10),
                .crc = ReadLe32(archive, position + 16),
                .compressed_size = ReadLe32(archive, position + 20),
                .uncompressed_size = ReadLe32(archive, position + 24),
                .header_offset = ReadLe32(archive, position + 42)};
    if (!LocateData(entry, directory_offset)) return false;
    position += record_size;
    index_.emplace(entry.name, entries_.size());
    entries_.push_back(std::move(entry));
    return true;
}

// Local headers and their data come before the central directory. The local header repeats
// sizes that a writer streaming its output leaves zero (flag bit 3), so only its name and
// extra field lengths are taken from it; everything else comes from the central record.
bool Unzip::LocateData(Entry& entry, size_t directory_offset) const {
    std::string_view archive = archive_;
    uint64_t header = entry.header_offset;
    if (header + kLocalHeaderSize > directory_offset) return false;
    if (ReadLe32(archive, header) != kLocalSignature) return false;
    entry.data_offset =
        header + kLocalHeaderSize + ReadLe16(archive, header + 26) + ReadLe16(archive, header + 28);
    return entry.data_offset + entry.compressed_size <= directory_offset;
}

bool Unzip::HasOverlappingData() const {
    std::vector<std::pair<uint64_t, uint64_t>> spans;
    spans.reserve(entries_.size());
    for (const Entry& entry : entries_) {
        spans.emplace_back(entry.header_offset, entry.data_offset + entry.compressed_size);
    }
    std::sort(spans.begin(), spans.end());
    for (size_t i = 1; i < spans.size(); ++i) {
        if (spans[i].first < spans[i - 1].second) return true;
    }
    return false;
}

std::vector<std::string> Unzip::EntryNames() const {
    std::vector<std::string> names;
    names.reserve(entries_.size());
    for (const Entry& entry : entries_)
        names.push_back(entry.name);
    return names;
}

Unzip::ExtractResult Unzip::Extract(std::string_view name, std::string& bytes) const {
    auto found = index_.find(name);
    if (found == index_.end()) return ExtractResult::kNotFound;
    return Decompress(entries_[found->second], bytes);
}

std::optional<std::string> Unzip::Extract(std::string_view name) const {
    std::string bytes;
    if (Extract(name, bytes) != ExtractResult::kOk) return std::nullopt;
    return bytes;
}

Unzip::ExtractResult Unzip::Decompress(const Entry& entry, std::string& bytes) const {
    if ((entry.flags & kEncryptedFlag) != 0) return ExtractResult::kUnsupported;
    if (entry.method != kMethodStored && entry.method != kMethodDeflate) {
        return ExtractResult::kUnsupported;
    }
    if (entry.uncompressed_size > kMaxEntrySize) return ExtractResult::kTooLarge;
    std::string_view data =
        std::string_view(archive_).substr(entry.data_offset, entry.compressed_size);

    std::string contents;
    if (entry.method == kMethodStored) {
        if (entry.compressed_size != entry.uncompressed_size) return ExtractResult::kCorrupt;
        contents.assign(data);
    } else {
        if (entry.uncompressed_size > uint64_t{entry.compressed_size} * kMaxCompressionRatio) {
            return ExtractResult::kTooLarge;
        }
        contents.resize(entry.uncompressed_size);
        if (Inflater::Inflate(data, contents) != Inflater::Result::kOk) {
            return ExtractResult::kCorrupt;
        }
    }
    if (Crc32::Of(contents) != entry.crc) return ExtractResult::kChecksumMismatch;
    bytes = std::move(contents);
    return ExtractResult::kOk;
}

}  // namespace Teko
