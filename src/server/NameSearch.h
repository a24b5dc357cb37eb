#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace Zarn {

struct LocalTarget;

// Finds the entries below a folder whose names hold every word of a query, without regard
// to case in any script. Shows visitors only what a listing would: hidden names per the
// setting, and links only where they lead inside the mount (or anywhere, where the owner
// allowed that); a folder reached twice through links is read once, so loops end. The tree
// is read breadth first, nearer entries first, so a bound cuts off the deepest; each folder
// is read once with readdir, and an entry's status is looked at only for a link, a file
// system that does not give the type, or a match. Bounded in results and in time. One
// object per search, used by one thread.
class NameSearch {
public:
    using Clock = std::chrono::steady_clock;

    struct Options {
        std::string query{};
        bool show_hidden = false;
        size_t max_results = 1000;
        Clock::time_point deadline = Clock::time_point::max();
    };

    struct Match {
        std::string folder{};  // the address of the folder it is in: "/docs/sub/"
        std::string name{};
        bool is_folder = false;
        uint64_t bytes = 0;
        time_t modified = 0;
    };

    // Why the search stopped before it had seen everything: too many results, too long,
    // or a folder that could not be opened for want of descriptors (a retry may succeed).
    enum class Bound { kNone, kResults, kTime, kDescriptors };

    explicit NameSearch(Options options);

    // False for a query of blanks only, which would match everything.
    [[nodiscard]] bool HasWords() const { return !words_.empty(); }
    // Searches the folder `target` leads to, whose address is `address` ("/docs/sub/").
    // May be called for several folders in turn (the root searches every mount), with one
    // budget for all; does nothing once a bound was reached.
    void Search(const LocalTarget& target, const std::string& address);

    // In the order found.
    [[nodiscard]] const std::vector<Match>& GetMatches() const { return matches_; }
    [[nodiscard]] Bound GetBound() const { return bound_; }

private:
    struct Pending {
        std::string relative;  // below the target's folder
        std::string address;
    };

    void ReadFolder(const LocalTarget& target, const Pending& folder, std::vector<Pending>& next);
    [[nodiscard]] bool IsMatch(std::string_view name);
    [[nodiscard]] bool IsPastDeadline();

    Options options_;
    std::vector<std::string> words_;
    std::string folded_;  // reused for every name
    std::vector<Match> matches_;
    std::set<std::pair<uint64_t, uint64_t>> visited_;  // device and inode of folders read
    size_t examined_ = 0;
    Bound bound_ = Bound::kNone;
};

}  // namespace Zarn
