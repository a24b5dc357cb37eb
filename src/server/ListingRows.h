#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/TextFormat.h"
#include "template/RecordList.h"

namespace Zarn {

class MimeTypeTable;

// The "$files" list of a listing page: folders first, then files, each by name (bytes
// compared). A row's values are made only when the page selects it, into one reused
// buffer: "$name" HTML-escaped, "$link" URL-encoded, "$size" with grouped digits,
// "$size_readable" as "1.4 MB" and "$date" in local time (all three empty for a folder),
// "$is_folder" "1" for a folder and absent for a file, "$mime" a file's Content-Type
// (empty without a type table; a skin tells by it what a browser can show, from the same
// table the download is typed by). Names are kept one after another
// in a single buffer, so that ten thousand entries cost few allocations and sort by moving
// small records. One thread.
//
// Rows of search results also name the folder they were found in (`found_in`, an address
// such as "/docs/sub/"): "$folder" escaped, "$folder_link" encoded, and a "$link" that
// leads to the entry from any page.
class ListingRows : public RecordList {
public:
    // `types`, when given, must outlive the rows and their clones.
    explicit ListingRows(const MimeTypeTable* types = nullptr);

    void AddFolder(std::string_view name, std::string_view found_in = {});
    void AddFile(std::string_view name, uint64_t bytes, time_t modified,
                 std::string_view found_in = {});
    // Into page order; call once all entries are in.
    void Sort();
    [[nodiscard]] uint64_t GetTotalBytes() const { return total_bytes_; }

    [[nodiscard]] size_t Count() const override { return entries_.size(); }
    void Select(size_t index) override;
    [[nodiscard]] std::optional<std::string_view> Lookup(std::string_view name) const override;
    [[nodiscard]] std::unique_ptr<RecordList> Clone() const override;

private:
    // The values of the selected row, in the order they are written into `row_`.
    enum Field {
        kName,
        kLink,
        kSize,
        kSizeReadable,
        kDate,
        kFolder,
        kFolderLink,
        kMime,
        kFieldCount
    };

    struct Entry {
        size_t name_at = 0;
        size_t name_size = 0;
        size_t folder_at = 0;
        size_t folder_size = 0;
        // Eight bytes of the name from where names start to differ, big-endian and padded
        // with zeros: comparing two of them orders most pairs without reading the names.
        uint64_t sort_key = 0;
        uint64_t bytes = 0;
        time_t modified = 0;
        bool is_folder = false;
    };

    void Add(std::string_view name, std::string_view found_in, Entry entry);
    [[nodiscard]] std::string_view NameOf(const Entry& entry) const;
    [[nodiscard]] std::string_view FolderOf(const Entry& entry) const;
    [[nodiscard]] size_t CommonPrefixSize() const;
    void AppendDate(time_t modified);
    void AppendType(std::string_view name);

    const MimeTypeTable* types_ = nullptr;

    ByteWords byte_words_;
    std::string names_;
    std::vector<Entry> entries_;
    uint64_t total_bytes_ = 0;

    // The selected row: its values one after another in `row_`, each ending at its mark.
    const Entry* selected_ = nullptr;
    std::string row_;
    size_t ends_[kFieldCount] = {};

    // Files of one folder often share their modification time (an unpacked archive, a
    // copy): the last one converted is kept.
    time_t last_time_ = 0;
    std::string last_date_;
    bool has_last_time_ = false;
    std::string last_extension_;
    std::string last_type_;
    bool has_last_type_ = false;
};

}  // namespace Zarn
