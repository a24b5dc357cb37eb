#pragma once

#include <string>

#include "server/HtmlPageSender.h"

namespace Zarn {

class AccountManager;
class KorvelConfig;
class MimeTypeTable;
class MountManager;

// What a processor that looks across folders (the folder tree, the search) needs to decide
// what this visitor may see: the settings, the mounts, and the visitor's rights on each.
// Borrowed for one request.
struct VisitorScope {
    KorvelConfig* config = nullptr;
    MountManager* mounts = nullptr;
    const AccountManager* accounts = nullptr;
    // For the rows' "$mime", so that a found file opens in the skin's viewer as a listed one.
    const MimeTypeTable* types = nullptr;
    std::string user{};  // the account name, or the anonymous visitor's
    HtmlPageSender::Context page{};
};

}  // namespace Zarn
