#include "share/IpFilter.h"

#include <algorithm>

#include "config/KorvelConfig.h"
#include "core/StringUtil.h"
#include "share/WildcardMatcher.h"

namespace Zarn {

std::optional<IpFilterRule> IpFilterRule::Parse(std::string_view element) {
    size_t colon = element.find(':');
    if (colon == std::string_view::npos || element.find(':', colon + 1) != std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view verdict = element.substr(colon + 1);
    if (verdict != "allow" && verdict != "ban") return std::nullopt;
    return IpFilterRule{verdict == "allow", std::string(element.substr(0, colon))};
}

std::string IpFilterRule::ToElement() const {
    return pattern + (allow ? ":allow" : ":ban");
}

IpFilter::IpFilter(KorvelConfig& config) : config_(config) {
    Reload();
}

void IpFilter::Reload() {
    std::vector<std::string> elements;
    {
        CriticalSectionLock hold(config_.GetLock());
        elements = config_.ipFilterTable;
    }
    std::vector<IpFilterRule> rules;
    for (const std::string& element : elements) {
        if (std::optional<IpFilterRule> rule = IpFilterRule::Parse(element)) {
            rules.push_back(*rule);
        }
    }
    CriticalSectionLock hold(lock_);
    rules_ = std::move(rules);
}

bool IpFilter::IsAdmitted(std::string_view address) const {
    CriticalSectionLock hold(lock_);
    for (const IpFilterRule& rule : rules_) {
        if (WildcardMatch(rule.pattern, address)) return rule.allow;
    }
    return true;
}

bool IpFilter::IsValidPattern(std::string_view text) {
    text = Trim(text);
    if (text.empty() || text.front() == '.' || text.back() == '.') return false;
    bool only_allowed = std::all_of(text.begin(), text.end(), [](char c) {
        return (c >= '0' && c <= '9') || c == '.' || c == '*';
    });
    return only_allowed && std::count(text.begin(), text.end(), '.') == 3;
}

std::optional<size_t> IpFilter::Find(bool allow, const std::string& pattern) const {
    CriticalSectionLock hold(lock_);
    for (size_t i = 0; i < rules_.size(); ++i) {
        if (rules_[i].allow == allow && rules_[i].pattern == pattern) return i;
    }
    return std::nullopt;
}

std::vector<IpFilterRule> IpFilter::GetRules() const {
    CriticalSectionLock hold(lock_);
    return rules_;
}

bool IpFilter::SetRules(std::vector<IpFilterRule> rules) {
    // The settings lock is held across the change and the save so saves land in order;
    // the filter's own lock only while the rules change.
    CriticalSectionLock settings(config_.GetLock());
    std::vector<std::string> elements;
    {
        CriticalSectionLock hold(lock_);
        rules_ = std::move(rules);
        for (const IpFilterRule& rule : rules_)
            elements.push_back(rule.ToElement());
    }
    config_.ipFilterTable = std::move(elements);
    return config_.Save();
}

}  // namespace Zarn
