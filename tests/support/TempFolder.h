#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace Zarn::testing {

// The whole file; empty when it cannot be read.
inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A fresh folder under the system's temporary folder, removed with everything in it.
class TempFolder {
public:
    TempFolder() : TempFolder(std::filesystem::temp_directory_path()) {}
    // Under `parent` instead: a tmpfs for trees of many thousand files, which a shared disk
    // takes minutes to make.
    explicit TempFolder(const std::filesystem::path& parent) {
        std::string pattern = (parent / "lumidrop-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) ADD_FAILURE() << "mkdtemp failed";
        path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    [[nodiscard]] const std::string& Path() const { return path_; }
    [[nodiscard]] std::string operator/(const std::string& name) const {
        return path_ + "/" + name;
    }

    void Write(const std::string& name, const std::string& bytes) const {
        std::filesystem::create_directories(std::filesystem::path(*this / name).parent_path());
        std::ofstream out(*this / name, std::ios::binary | std::ios::trunc);
        out << bytes;
    }

    [[nodiscard]] std::string Read(const std::string& name) const {
        return ReadWholeFile(*this / name);
    }

    [[nodiscard]] bool Exists(const std::string& name) const {
        return std::filesystem::exists(*this / name);
    }

private:
    std::string path_;
};

}  // namespace Zarn::testing
