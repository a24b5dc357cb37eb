#include "server/ListingRows.h"

#include <algorithm>

#include "core/UrlCodec.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/TextFormat.h"
#include "share/MimeTypeTable.h"

namespace Zarn {

// Translated once per page, not once per row.
ListingRows::ListingRows(const MimeTypeTable* types)
    : types_(types), byte_words_(ByteWords::Translated()) {}

void ListingRows::AddFolder(std::string_view name, std::string_view found_in) {
    Add(name, found_in, {.is_folder = true});
}

void ListingRows::AddFile(std::string_view name, uint64_t bytes, time_t modified,
                          std::string_view found_in) {
    Add(name, found_in, {.bytes = bytes, .modified = modified});
    total_bytes_ += bytes;
}

void ListingRows::Add(std::string_view name, std::string_view found_in, Entry entry) {
    entry.folder_at = names_.size();
    entry.folder_size = found_in.size();
    names_.append(found_in);
    entry.name_at = names_.size();
    entry.name_size = name.size();
    names_.append(name);
    entries_.push_back(entry);
}

std::string_view ListingRows::NameOf(const Entry& entry) const {
    return std::string_view(names_).substr(entry.name_at, entry.name_size);
}

std::string_view ListingRows::FolderOf(const Entry& entry) const {
    return std::string_view(names_).substr(entry.folder_at, entry.folder_size);
}

size_t ListingRows::CommonPrefixSize() const {
    if (entries_.empty()) return 0;
    std::string_view first = NameOf(entries_.front());
    size_t common = first.size();
    for (const Entry& entry : entries_) {
        std::string_view name = NameOf(entry);
        auto [differs, unused] =
            std::mismatch(first.begin(), first.begin() + common, name.begin(), name.end());
        common = static_cast<size_t>(differs - first.begin());
    }
    return common;
}

void ListingRows::Sort() {
    selected_ = nullptr;
    // Folders of numbered files ("IMG_0001.JPG"...) share a long start, so the key is
    // taken after it. A zero of the padding sorts below every byte a name can hold; a
    // real zero byte ties with it, and ties compare the names.
    size_t common = CommonPrefixSize();
    for (Entry& entry : entries_) {
        std::string_view rest = NameOf(entry).substr(common);
        entry.sort_key = 0;
        for (size_t i = 0; i < 8; ++i) {
            uint8_t byte = i < rest.size() ? static_cast<uint8_t>(rest[i]) : 0;
            entry.sort_key = entry.sort_key << 8 | byte;
        }
    }
    std::sort(entries_.begin(), entries_.end(), [this, common](const Entry& a, const Entry& b) {
        if (a.is_folder != b.is_folder) return a.is_folder;
        if (a.sort_key != b.sort_key) return a.sort_key < b.sort_key;
        return NameOf(a).substr(common) < NameOf(b).substr(common);
    });
}

void ListingRows::Select(size_t index) {
    selected_ = &entries_[index];
    std::string_view name = NameOf(*selected_);
    std::string_view folder = FolderOf(*selected_);
    bool is_file = !selected_->is_folder;
    row_.clear();
    AppendHtmlEscaped(row_, name);
    ends_[kName] = row_.size();
    AppendUrlEncoded(row_, folder);
    AppendUrlEncoded(row_, name);
    ends_[kLink] = row_.size();
    if (is_file) AppendGroupedDigits(row_, selected_->bytes);
    ends_[kSize] = row_.size();
    if (is_file) AppendReadableSize(row_, selected_->bytes, byte_words_);
    ends_[kSizeReadable] = row_.size();
    if (is_file) AppendDate(selected_->modified);
    ends_[kDate] = row_.size();
    AppendHtmlEscaped(row_, folder);
    ends_[kFolder] = row_.size();
    AppendUrlEncoded(row_, folder);
    ends_[kFolderLink] = row_.size();
    if (is_file && types_ != nullptr) AppendType(name);
    ends_[kMime] = row_.size();
}

void ListingRows::AppendType(std::string_view name) {
    size_t dot = name.rfind('.');
    std::string_view extension = dot == std::string_view::npos ? "" : name.substr(dot + 1);
    // Folders are mostly of one kind of file (photos, songs): the last type is kept, which
    // spares most rows the table's lock and search.
    if (!has_last_type_ || extension != last_extension_) {
        last_extension_.assign(extension);
        last_type_.clear();
        // The owner may write anything into the type table.
        AppendHtmlEscaped(last_type_, types_->Lookup(extension));
        has_last_type_ = true;
    }
    row_ += last_type_;
}

void ListingRows::AppendDate(time_t modified) {
    if (!has_last_time_ || modified != last_time_) {
        std::tm local{};
        last_date_.clear();
        if (::localtime_r(&modified, &local) == nullptr) {
            LogTranslated(kLogError, "파일 시간을 얻어올 수 없음");
        } else {
            AppendListingDate(last_date_, local);
        }
        last_time_ = modified;
        has_last_time_ = true;
    }
    row_ += last_date_;
}

std::optional<std::string_view> ListingRows::Lookup(std::string_view name) const {
    if (selected_ == nullptr) return std::nullopt;
    if (name == "$is_folder") {
        return selected_->is_folder ? std::optional<std::string_view>("1") : std::nullopt;
    }
    static constexpr std::string_view kNames[kFieldCount] = {
        "$name", "$link", "$size", "$size_readable", "$date", "$folder", "$folder_link", "$mime"};
    for (size_t field = 0; field < kFieldCount; ++field) {
        if (name != kNames[field]) continue;
        // Listing rows have no folder: absent, so that a skin can ask #if( $folder ).
        bool about_folder = field == kFolder || field == kFolderLink;
        if (about_folder && selected_->folder_size == 0) return std::nullopt;
        if (field == kMime && selected_->is_folder) return std::nullopt;
        size_t start = field == 0 ? 0 : ends_[field - 1];
        return std::string_view(row_).substr(start, ends_[field] - start);
    }
    return std::nullopt;
}

std::unique_ptr<RecordList> ListingRows::Clone() const {
    auto copy = std::make_unique<ListingRows>(*this);
    copy->selected_ = nullptr;  // it pointed into our entries
    return copy;
}

}  // namespace Zarn
