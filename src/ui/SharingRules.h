#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "share/MountManager.h"

namespace Zarn {

class AccountManager;

// The rules a new or edited mount and a new account must meet, shared by the console's
// forms, the first-run wizard and `lumidrop init`, so that each refuses exactly what the
// others refuse. Reads the registries (which lock themselves); any thread.
class SharingRules {
public:
    struct Refusal {
        int code;  // 400, or 409 for a name that is taken
        const char* field;
        const char* key;  // the message, translated when it is shown
    };

    // What is wrong with the mount, if anything. `original` is the name being edited
    // (empty for a new mount), which the mount may keep.
    [[nodiscard]] static std::optional<Refusal> FindMountFault(const MountManager& mounts,
                                                               const Mount& mount,
                                                               const std::string& original);
    // What is wrong with a name for a new or renamed account, if anything; `field` is the
    // form field that carries it.
    [[nodiscard]] static std::optional<Refusal> FindAccountNameFault(const AccountManager& accounts,
                                                                     const char* field,
                                                                     const std::string& name);
    // A password that is too long to keep.
    [[nodiscard]] static std::optional<Refusal> FindPasswordFault(const std::string& password);
    // The rights bits 0..15 written in decimal, or nothing.
    [[nodiscard]] static std::optional<uint32_t> ParseRights(const std::string& text);
};

}  // namespace Zarn
