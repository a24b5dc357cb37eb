#include "share/AccountManager.h"

#include <utility>

#include "config/KorvelConfig.h"
#include "core/StringUtil.h"
#include "core/UrlCodec.h"
#include "share/MountManager.h"
#include "share/ObjectIdentifier.h"

namespace Zarn {
namespace {

// Compares without stopping at the first difference, so the time taken tells nothing
// about how much of a guess was right.
bool SamePassword(const std::string& stored, const std::string& given) {
    if (stored.size() != given.size()) return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < stored.size(); ++i) {
        difference |= static_cast<unsigned char>(stored[i] ^ given[i]);
    }
    return difference == 0;
}

std::optional<uint32_t> ParseRights(std::string_view text) {
    text = Trim(text);
    if (text.empty() || text.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(ParseLeadingDecimal(text) & 0xFFFFFFFF);
}

}  // namespace

AccountManager::AccountManager(KorvelConfig& config, MountManager& mounts)
    : config_(config), mounts_(mounts) {
    CriticalSectionLock hold(config_.GetLock());
    LoadAccounts(config_.users);
    LoadRights(config_.authorities);
}

void AccountManager::LoadAccounts(const std::vector<std::string>& elements) {
    for (const std::string& element : elements) {
        std::vector<std::string_view> fields = Split(element, '|');
        if (fields.size() != 2) continue;
        accounts_.emplace(PercentDecode(fields[0]),
                          Account{PercentDecode(fields[1]), NextObjectIdentifier(), true});
    }
    // A fresh install has no accounts at all and must still serve anonymous visitors.
    if (!accounts_.contains(kAnonymous)) {
        accounts_.emplace(kAnonymous, Account{"", NextObjectIdentifier(), false});
    }
}

void AccountManager::LoadRights(const std::vector<std::string>& elements) {
    for (const std::string& element : elements) {
        std::vector<std::string_view> fields = Split(element, '|');
        if (fields.size() != 3) continue;
        std::optional<uint32_t> rights = ParseRights(fields[2]);
        auto account = accounts_.find(PercentDecode(fields[0]));
        std::optional<Mount> mount = mounts_.GetMount(PercentDecode(fields[1]));
        if (!rights) continue;
        if (account == accounts_.end() || !mount) {
            unmatched_rights_.push_back(element);
            continue;
        }
        rights_[{account->second.identifier, mount->identifier}] = *rights;
    }
}

void AccountManager::Reload() {
    CriticalSectionLock hold(config_.GetLock());
    accounts_.clear();
    rights_.clear();
    unmatched_rights_.clear();
    LoadAccounts(config_.users);
    LoadRights(config_.authorities);
}

void AccountManager::ApplyPendingRights() {
    CriticalSectionLock hold(config_.GetLock());
    LoadRights(std::exchange(unmatched_rights_, {}));
}

bool AccountManager::CheckPassword(const std::string& name, const std::string& password) const {
    if (name.empty()) return true;
    CriticalSectionLock hold(config_.GetLock());
    auto found = accounts_.find(name);
    return found != accounts_.end() && SamePassword(found->second.password, password);
}

std::optional<std::string> AccountManager::GetPassword(const std::string& name) const {
    CriticalSectionLock hold(config_.GetLock());
    auto found = accounts_.find(name);
    if (found == accounts_.end()) return std::nullopt;
    return found->second.password;
}

std::optional<uint32_t> AccountManager::GetRights(const std::string& account,
                                                  const std::string& mount) const {
    CriticalSectionLock hold(config_.GetLock());
    auto found = accounts_.find(account);
    if (found == accounts_.end()) return std::nullopt;
    std::optional<Mount> record = mounts_.GetMount(mount);
    if (!record) return std::nullopt;
    uint32_t rights = kDefaultRights;
    auto granted = rights_.find({found->second.identifier, record->identifier});
    if (granted != rights_.end()) rights = granted->second;
    if (!record->is_folder) rights = (rights | kRightList) & ~kRightUpload;
    return rights;
}

std::vector<std::string> AccountManager::ListAccounts() const {
    CriticalSectionLock hold(config_.GetLock());
    std::vector<std::string> names;
    for (const auto& [name, account] : accounts_)
        names.push_back(name);
    return names;
}

bool AccountManager::SetAccount(const std::string& name, const std::string& password) {
    if (name.empty()) return false;
    CriticalSectionLock hold(config_.GetLock());
    auto [entry, added] =
        accounts_.try_emplace(name, Account{password, NextObjectIdentifier(), true});
    if (!added) {
        entry->second.password = password;
        entry->second.in_file = true;
    }
    return SaveLocked();
}

bool AccountManager::RemoveAccount(const std::string& name) {
    CriticalSectionLock hold(config_.GetLock());
    auto found = accounts_.find(name);
    if (found == accounts_.end()) return false;
    uint32_t identifier = found->second.identifier;
    std::erase_if(rights_,
                  [identifier](const auto& grant) { return grant.first.first == identifier; });
    if (name == kAnonymous) {
        found->second = Account{"", identifier, false};  // the visitor's account stays
    } else {
        accounts_.erase(found);
    }
    return SaveLocked();
}

bool AccountManager::RenameAccount(const std::string& name, const std::string& new_name) {
    if (new_name.empty() || name == kAnonymous || new_name == kAnonymous) return false;
    CriticalSectionLock hold(config_.GetLock());
    auto found = accounts_.find(name);
    if (found == accounts_.end() || accounts_.contains(new_name)) return false;
    // The identifier travels with the record, and the grants are keyed by it.
    auto record = accounts_.extract(found);
    record.key() = new_name;
    accounts_.insert(std::move(record));
    return SaveLocked();
}

bool AccountManager::Save() {
    CriticalSectionLock hold(config_.GetLock());
    return SaveLocked();
}

bool AccountManager::SetRights(const std::string& account, const std::string& mount,
                               uint32_t rights) {
    CriticalSectionLock hold(config_.GetLock());
    auto found = accounts_.find(account);
    std::optional<Mount> record = mounts_.GetMount(mount);
    if (found == accounts_.end() || !record) return false;
    rights_[{found->second.identifier, record->identifier}] = rights;
    return SaveLocked();
}

bool AccountManager::SaveLocked() {
    std::vector<std::string> users;
    std::map<uint32_t, std::string> names;
    for (const auto& [name, account] : accounts_) {
        names[account.identifier] = name;
        if (account.in_file) users.push_back(UrlEncode(name) + "|" + UrlEncode(account.password));
    }
    std::vector<std::string> authorities;
    for (const auto& [key, rights] : rights_) {
        auto account = names.find(key.first);
        std::optional<std::string> mount = mounts_.NameOf(key.second);
        if (account == names.end() || !mount) continue;  // the mount was removed
        authorities.push_back(UrlEncode(account->second) + "|" + UrlEncode(*mount) + "|" +
                              std::to_string(rights));
    }
    authorities.insert(authorities.end(), unmatched_rights_.begin(), unmatched_rights_.end());
    config_.users = std::move(users);
    config_.authorities = std::move(authorities);
    return config_.Save();
}

}  // namespace Zarn
