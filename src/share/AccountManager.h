#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zarn {

class KorvelConfig;
class MountManager;

// Rights bits of an account on a mount.
inline constexpr uint32_t kRightList = 1;      // browse folders
inline constexpr uint32_t kRightDownload = 2;  // download files
inline constexpr uint32_t kRightUpload = 4;    // upload files and create folders
inline constexpr uint32_t kRightAdmin = 8;     // delete files and remove folders
inline constexpr uint32_t kDefaultRights = kRightList | kRightDownload;

// The accounts ("users") and the rights of each account on each mount ("authorities"),
// loaded from the settings and saved back on every change. Everything here is guarded by
// the settings lock; rights lookups then ask the mount registry, whose lock comes second.
// Any thread may check; results are copies. Passwords are compared in constant time for
// equal lengths and never logged.
class AccountManager {
public:
    // The anonymous visitor's account; it always exists, with an empty password unless
    // the settings give it one.
    static constexpr char kAnonymous[] = ".anonymous";

    AccountManager(KorvelConfig& config, MountManager& mounts);

    // True at once for an empty name (the anonymous visitor needs no password); otherwise
    // true only when the account exists and its password is exactly the one given.
    [[nodiscard]] bool CheckPassword(const std::string& name, const std::string& password) const;
    [[nodiscard]] std::optional<std::string> GetPassword(const std::string& name) const;
    // The account's rights on the mount: the granted value, else the default 3; a
    // single-file mount always allows listing and never uploading. Nothing when the
    // account or the mount does not exist.
    [[nodiscard]] std::optional<uint32_t> GetRights(const std::string& account,
                                                    const std::string& mount) const;
    [[nodiscard]] std::vector<std::string> ListAccounts() const;

    // Each changes the tables and saves the settings file; false when the account or
    // mount does not exist (or the save failed).
    bool SetAccount(const std::string& name, const std::string& password);
    bool RemoveAccount(const std::string& name);
    // Keeps the account's rights under its new name; false also when the new name is
    // taken or either name is the anonymous visitor's.
    bool RenameAccount(const std::string& name, const std::string& new_name);
    bool SetRights(const std::string& account, const std::string& mount, uint32_t rights);
    // Reads the accounts and grants from the settings again, after the settings and the
    // mount registry were replaced by a reload of the settings file.
    void Reload();
    // Grants of the settings file whose mount did not exist at load time take effect for
    // mounts added since (on the command line, say).
    void ApplyPendingRights();
    // Writes the tables again: after a mount was removed or renamed, so that the file's
    // grants name the mounts as they now are.
    bool Save();

private:
    struct Account {
        std::string password;
        uint32_t identifier = 0;
        bool in_file = true;
    };
    using RightsKey = std::pair<uint32_t, uint32_t>;  // account, mount identifiers

    void LoadAccounts(const std::vector<std::string>& elements);
    void LoadRights(const std::vector<std::string>& elements);
    bool SaveLocked();

    KorvelConfig& config_;
    MountManager& mounts_;
    std::map<std::string, Account> accounts_;
    std::map<RightsKey, uint32_t> rights_;
    // Grants naming an account or mount that does not exist now: kept as they were, so
    // that a save never loses them.
    std::vector<std::string> unmatched_rights_;
};

}  // namespace Zarn
