#include "server/ZipStreamWriter.h"

#include <algorithm>
#include <stdexcept>

#include "core/TextEncoding.h"

namespace Zarn {
namespace {

constexpr uint32_t kLocalHeaderSignature = 0x04034b50u;
constexpr uint32_t kDescriptorSignature = 0x08074b50u;
constexpr uint32_t kCentralHeaderSignature = 0x02014b50u;
constexpr uint32_t kZip64EndSignature = 0x06064b50u;
constexpr uint32_t kZip64LocatorSignature = 0x07064b50u;
constexpr uint32_t kEndSignature = 0x06054b50u;

constexpr uint16_t kFlagDescriptor = 0x0008;  // CRC and sizes follow the data
constexpr uint16_t kFlagUtf8 = 0x0800;
constexpr uint16_t kVersionPlain = 20;
constexpr uint16_t kVersionZip64 = 45;
constexpr uint16_t kMadeOnUnix = 3 << 8;
constexpr uint16_t kZip64ExtraTag = 0x0001;
constexpr uint32_t kMax32 = 0xFFFFFFFFu;
constexpr uint16_t kMax16 = 0xFFFFu;
// Unix modes in the upper half of the external attributes, so that unpacking makes
// plain readable files and folders rather than copying whatever the owner's files carry.
constexpr uint32_t kFileAttributes = 0100644u << 16;
constexpr uint32_t kFolderAttributes = (040755u << 16) | 0x10u;

// The UTF-8 flag only for names that are UTF-8: a name on disk may be any bytes, and a
// reader told they are UTF-8 refuses them or the whole archive. Without the flag readers
// take the bytes in their own code page, and unpacking on Linux keeps them as they are.
uint16_t GeneralFlags(bool is_folder, bool utf8_name) {
    return static_cast<uint16_t>((utf8_name ? kFlagUtf8 : 0) | (is_folder ? 0 : kFlagDescriptor));
}

// A size at the 32-bit limit already means "see the Zip64 field", so it counts as large.
bool IsLarge(uint64_t value) {
    return value >= kMax32;
}

class Bytes {
public:
    Bytes& U16(uint16_t value) { return Little(value, 2); }
    Bytes& U32(uint32_t value) { return Little(value, 4); }
    Bytes& U64(uint64_t value) { return Little(value, 8); }
    Bytes& Text(std::string_view text) {
        out_.append(text);
        return *this;
    }
    [[nodiscard]] std::string_view View() const { return out_; }

private:
    Bytes& Little(uint64_t value, int count) {
        for (int i = 0; i < count; ++i)
            out_ += static_cast<char>((value >> (8 * i)) & 0xFFu);
        return *this;
    }
    std::string out_;
};

// MS-DOS date in the upper half, time in the lower, in the server's local time as
// unpacking programs read it; 1980 is the earliest the format can hold.
uint32_t DosTime(time_t modified) {
    struct tm local {};
    if (::localtime_r(&modified, &local) == nullptr || local.tm_year < 80) {
        return (1u << 5 | 1u) << 16;
    }
    int year = std::min(local.tm_year - 80, 127);
    uint32_t date = static_cast<uint32_t>(year << 9 | (local.tm_mon + 1) << 5 | local.tm_mday);
    uint32_t time =
        static_cast<uint32_t>(local.tm_hour << 11 | local.tm_min << 5 | local.tm_sec / 2);
    return date << 16 | time;
}

}  // namespace

void ZipStreamWriter::Emit(std::string_view bytes, bool record) {
    sink_(bytes, record);
    offset_ += bytes.size();
}

void ZipStreamWriter::Begin(const Entry& entry) {
    if (in_file_) throw std::logic_error("A zip entry begun before the last one ended");
    if (entry.name.size() > kMax16) throw std::invalid_argument("Zip entry name too long");
    bool is_folder = entry.name.ends_with('/');
    bool large = IsLarge(entry.size);
    Record record{.offset = offset_,
                  .size = is_folder ? 0 : entry.size,
                  .crc = 0,
                  .dos_time = DosTime(entry.modified),
                  .name_at = static_cast<uint32_t>(names_.size()),
                  .name_length = static_cast<uint16_t>(entry.name.size()),
                  .is_folder = is_folder,
                  .utf8_name = IsValidUtf8(entry.name)};
    names_ += entry.name;
    Bytes header;
    header.U32(kLocalHeaderSignature)
        .U16(large ? kVersionZip64 : kVersionPlain)
        .U16(GeneralFlags(is_folder, record.utf8_name))
        .U16(0)  // stored
        .U32(record.dos_time)
        .U32(0)  // the CRC follows the data
        .U32(large ? kMax32 : 0)
        .U32(large ? kMax32 : 0)
        .U16(record.name_length)
        .U16(large ? 20 : 0)
        .Text(entry.name);
    // The Zip64 field in the local header tells readers that the descriptor after the
    // data carries 64-bit sizes.
    if (large) header.U16(kZip64ExtraTag).U16(16).U64(0).U64(0);
    Emit(header.View());
    records_.push_back(record);
    in_file_ = !is_folder;
    written_ = 0;
    crc_ = Teko::Crc32();
}

void ZipStreamWriter::Write(std::string_view bytes) {
    crc_.Update(bytes);
    written_ += bytes.size();
    Emit(bytes, false);
}

bool ZipStreamWriter::End() {
    if (!in_file_) return true;
    Record& record = records_.back();
    if (written_ != record.size) return false;
    in_file_ = false;
    record.crc = crc_.Value();
    Bytes descriptor;
    descriptor.U32(kDescriptorSignature).U32(record.crc);
    if (IsLarge(record.size)) {
        descriptor.U64(record.size).U64(record.size);
    } else {
        descriptor.U32(static_cast<uint32_t>(record.size)).U32(static_cast<uint32_t>(record.size));
    }
    Emit(descriptor.View());
    return true;
}

void ZipStreamWriter::WriteCentralRecord(const Record& record) {
    bool large_size = IsLarge(record.size);
    bool large_offset = IsLarge(record.offset);
    Bytes extra;
    if (large_size) extra.U64(record.size).U64(record.size);
    if (large_offset) extra.U64(record.offset);
    bool zip64 = large_size || large_offset;
    auto extra_length = static_cast<uint16_t>(extra.View().size());
    uint16_t version = zip64 ? kVersionZip64 : kVersionPlain;
    auto size32 = large_size ? kMax32 : static_cast<uint32_t>(record.size);
    Bytes header;
    header.U32(kCentralHeaderSignature)
        .U16(kMadeOnUnix | version)
        .U16(version)
        .U16(GeneralFlags(record.is_folder, record.utf8_name))
        .U16(0)
        .U32(record.dos_time)
        .U32(record.crc)
        .U32(size32)
        .U32(size32)
        .U16(record.name_length)
        .U16(zip64 ? static_cast<uint16_t>(extra_length + 4) : 0)
        .U16(0)  // comment
        .U16(0)  // disk
        .U16(0)  // internal attributes
        .U32(record.is_folder ? kFolderAttributes : kFileAttributes)
        .U32(large_offset ? kMax32 : static_cast<uint32_t>(record.offset))
        .Text(std::string_view(names_).substr(record.name_at, record.name_length));
    if (zip64) header.U16(kZip64ExtraTag).U16(extra_length).Text(extra.View());
    Emit(header.View());
}

void ZipStreamWriter::WriteEndRecords(uint64_t directory_offset, uint64_t directory_size) {
    uint64_t count = records_.size();
    bool zip64 = count >= kMax16 || IsLarge(directory_offset) || IsLarge(directory_size);
    Bytes end;
    if (zip64) {
        uint64_t zip64_end_offset = offset_;
        end.U32(kZip64EndSignature)
            .U64(44)  // the size of what follows in this record
            .U16(kMadeOnUnix | kVersionZip64)
            .U16(kVersionZip64)
            .U32(0)
            .U32(0)
            .U64(count)
            .U64(count)
            .U64(directory_size)
            .U64(directory_offset);
        end.U32(kZip64LocatorSignature).U32(0).U64(zip64_end_offset).U32(1);
    }
    auto count16 = static_cast<uint16_t>(std::min<uint64_t>(count, kMax16));
    end.U32(kEndSignature)
        .U16(0)
        .U16(0)
        .U16(count16)
        .U16(count16)
        .U32(static_cast<uint32_t>(std::min<uint64_t>(directory_size, kMax32)))
        .U32(static_cast<uint32_t>(std::min<uint64_t>(directory_offset, kMax32)))
        .U16(0);
    Emit(end.View(), false);
}

void ZipStreamWriter::Finish() {
    if (in_file_) throw std::logic_error("A zip archive finished inside an entry");
    uint64_t directory_offset = offset_;
    for (const Record& record : records_)
        WriteCentralRecord(record);
    WriteEndRecords(directory_offset, offset_ - directory_offset);
}

uint64_t ZipStreamWriter::ArchiveSize(const std::vector<Entry>& entries) {
    ZipStreamWriter counter([](std::string_view, bool) {});
    for (const Entry& entry : entries) {
        counter.Begin(entry);
        if (!counter.in_file_) continue;
        // The bytes are only counted: the CRC has the same length whatever they are.
        counter.offset_ += entry.size;
        counter.written_ = entry.size;
        (void)counter.End();
    }
    counter.Finish();
    return counter.offset_;
}

}  // namespace Zarn
