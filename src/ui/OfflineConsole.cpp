#include "ui/OfflineConsole.h"

#include "core/PathUtil.h"
#include "i18n/LocalizationStringTable.h"
#include "server/KorvelServer.h"
#include "skin/SkinManager.h"
#include "ui/ConsoleServer.h"
#include "ui/ConsoleToken.h"

namespace Zarn {

OfflineConsole::OfflineConsole(Key, const std::string& home, SingleInstanceLock lock)
    : lock_(std::move(lock)),
      config_(JoinPath(home, KorvelConfig::kFileName)),
      log_history_(log_queue_) {}

OfflineConsole::~OfflineConsole() {
    if (console_) console_->Stop();
}

std::unique_ptr<OfflineConsole> OfflineConsole::Open(const std::string& home,
                                                     SingleInstanceLock lock) {
    auto console = std::make_unique<OfflineConsole>(Key(), home, std::move(lock));
    std::optional<std::string> token = ConsoleToken::LoadOrCreate(home);
    if (!token) return nullptr;
    console->token_ = *token;
    // Refusals read in the owner's language, as a running program would give them.
    LocalizationStringTable::InstallShippedLanguages(home);
    LocalizationStringTable::Instance().LoadLanguage(home, console->config_.uiLanguageFile);
    // No skin is loaded: nothing is served to visitors.
    console->server_ =
        std::make_unique<KorvelServer>(console->config_, SkinManager::Instance(), home);
    console->server_->GetAccounts().ApplyPendingRights();
    console->console_ = std::make_unique<ConsoleServer>(
        ConsoleRequestHandler::Services{.token = console->token_,
                                        .port = {},
                                        .api = {.config = &console->config_,
                                                .server = console->server_.get(),
                                                .log = &console->log_history_}});
    if (!console->console_->Start(0)) return nullptr;
    return console;
}

int OfflineConsole::GetPort() const {
    return console_->GetPort();
}

}  // namespace Zarn
