#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/CriticalSection.h"

namespace Zarn {

class KorvelConfig;

// One IP filter rule: a dotted pattern ("192.168.0.*") and whether a match is admitted.
struct IpFilterRule {
    bool allow = true;
    std::string pattern;

    bool operator==(const IpFilterRule&) const = default;

    // The settings element "pattern:allow" or "pattern:ban"; nothing for anything else.
    [[nodiscard]] static std::optional<IpFilterRule> Parse(std::string_view element);
    [[nodiscard]] std::string ToElement() const;
};

// The ordered IP filter rules ("ipFilterTable"): the first rule whose pattern matches a
// client's address decides; an address no rule matches is admitted. The rules have a lock
// of their own; any thread may check while the owner edits them.
class IpFilter {
public:
    // Loads the rules from the settings' "ipFilterTable"; elements that are not rules are
    // left out.
    explicit IpFilter(KorvelConfig& config);

    // Reads the rules from the settings again, replacing the ones in force.
    void Reload();

    [[nodiscard]] bool IsAdmitted(std::string_view address) const;

    // Whether the owner may enter this pattern: after trimming, not empty, no leading or
    // trailing ".", only digits, "." and "*", and exactly three dots.
    [[nodiscard]] static bool IsValidPattern(std::string_view text);

    // The position of a rule equal to this one (flag and exact pattern), to refuse
    // duplicates.
    [[nodiscard]] std::optional<size_t> Find(bool allow, const std::string& pattern) const;

    [[nodiscard]] std::vector<IpFilterRule> GetRules() const;
    // Replaces the rules and saves the settings file.
    bool SetRules(std::vector<IpFilterRule> rules);

private:
    KorvelConfig& config_;
    mutable CriticalSection lock_;
    std::vector<IpFilterRule> rules_;
};

}  // namespace Zarn
