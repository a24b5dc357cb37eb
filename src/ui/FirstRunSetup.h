#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "share/AccountManager.h"

namespace Zarn {

class KorvelConfig;
class MountManager;

// What the owner chose on a new home: the wizard's steps, or the options of
// `lumidrop init`.
struct FirstRunChoices {
    // A file of the home's "Language/", or empty for the built-in texts; nothing keeps
    // the language as it is.
    std::optional<std::string> language{};
    std::optional<int> port{};  // the visitors' port; nothing keeps it
    std::string mount_name{};
    std::string mount_path{};  // absolute; a folder, or a single file
    uint32_t anonymous_rights = kDefaultRights;
    std::string account_name{};  // empty: no account of the owner's
    std::string password{};
};

// Sets up a new home from the owner's first choices: the first share, what anonymous
// visitors may do there, optionally an account of the owner's that may also upload, and
// the language and port. Everything is checked before anything changes, so a refused
// choice leaves the home as it was; the changes go through the registries the console
// uses and are saved. Any thread; the registries lock themselves.
class FirstRunSetup {
public:
    // Rights of the owner's first account on the first share: everything but deleting,
    // which the owner grants in the console after a confirmation.
    static constexpr uint32_t kAccountRights = kRightList | kRightDownload | kRightUpload;

    struct Fault {
        int code;             // 400, 409 for a name that is taken, 500 when saving failed
        std::string field;    // "language", "port", "name", "path", "anonymousRights",
                              // "user", "password"; empty when no choice is at fault
        std::string message;  // in the owner's language
    };

    // All four must outlive this object.
    FirstRunSetup(KorvelConfig& config, MountManager& mounts, AccountManager& accounts,
                  std::string home)
        : config_(config), mounts_(mounts), accounts_(accounts), home_(std::move(home)) {}

    // The first choice that cannot be made, if any.
    [[nodiscard]] std::optional<Fault> Check(const FirstRunChoices& choices) const;
    // Checks, then makes every choice and records the wizard as done.
    [[nodiscard]] std::optional<Fault> Apply(const FirstRunChoices& choices);
    // Records the wizard as done and changes nothing else. False when it cannot be saved.
    [[nodiscard]] bool MarkDone();
    // The language a new home starts in: Korean for a Korean locale (the program's own
    // texts), English otherwise.
    [[nodiscard]] static std::string LanguageFromLocale();

private:
    KorvelConfig& config_;
    MountManager& mounts_;
    AccountManager& accounts_;
    std::string home_;
};

}  // namespace Zarn
