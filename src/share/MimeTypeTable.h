#pragma once

#include <map>
#include <shared_mutex>
#include <string>
#include <string_view>

namespace Zarn {

// Maps a file extension to the Content-Type it is served with. Filled from
// "mime-type.txt" in the home folder, or from the copy built into the program. Each line:
// a type, then one or more extensions, separated by blanks or tabs; a CR before the line
// end counts as a blank; keys are kept as written. Any thread may look up while another
// reloads.
class MimeTypeTable {
public:
    static constexpr char kFileName[] = "mime-type.txt";
    static constexpr char kDefaultType[] = "application/octet-stream";
    // A line this long or longer ends the table there (its first 127 characters count).
    static constexpr size_t kMaxLineChars = 128;

    // Replaces the whole table with the contents of the text.
    void Load(std::string_view text);
    // "mime-type.txt" of the home folder when it can be read, else the built-in copy;
    // says which in the log. When neither gives bytes the table stays as it was.
    void LoadFromHome(const std::string& home);

    // The type for an extension (the text after a file name's last "."; ASCII letters
    // compared in lower case), or "application/octet-stream".
    [[nodiscard]] std::string Lookup(std::string_view extension) const;
    // The type for a file name by its last extension.
    [[nodiscard]] std::string LookupFileName(std::string_view file_name) const;
    [[nodiscard]] size_t Size() const;

private:
    mutable std::shared_mutex mutex_;
    std::map<std::string, std::string, std::less<>> types_;
};

}  // namespace Zarn
