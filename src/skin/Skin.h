#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "template/TextTemplate.h"

namespace Zarn {

// One loaded skin: its page template, the type pages are sent with, and its files (static
// ones as they are, translated ones as rendered at load time). Immutable once built and
// shared: a request keeps the skin it started with even when skins are reloaded.
class Skin {
public:
    // Reads one file of the skin by its name; nothing when it cannot be read.
    using FileReader = std::function<std::optional<std::string>(const std::string& name)>;

    // Builds a skin from its description file and files; nothing (and the reason logged)
    // when the description or the page template cannot be read or parsed.
    [[nodiscard]] static std::shared_ptr<const Skin> Build(const std::string& name,
                                                           const FileReader& read);

    [[nodiscard]] const std::string& GetName() const { return name_; }
    [[nodiscard]] const TextTemplate& GetPage() const { return page_; }
    // The page type; "text/html" when the skin names none.
    [[nodiscard]] const std::string& GetMimeType() const { return mime_type_; }
    [[nodiscard]] std::shared_ptr<const std::string> FindFile(std::string_view name) const;

private:
    // Only Build makes skins; the key keeps everyone else from calling the constructor.
    struct Key {
        explicit Key() = default;
    };

public:
    explicit Skin(Key) {}

private:
    std::string name_;
    TextTemplate page_;
    std::string mime_type_;
    std::map<std::string, std::shared_ptr<const std::string>, std::less<>> files_;
};

}  // namespace Zarn
