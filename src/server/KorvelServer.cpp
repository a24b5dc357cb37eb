#include "server/KorvelServer.h"

#include <chrono>

#include "config/KorvelConfig.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/IdentificationRequestProcessor.h"
#include "server/SystemFileTable.h"
#include "share/MimeTypeTable.h"
#include "skin/SkinManager.h"

namespace Zarn {

KorvelServer::KorvelServer(KorvelConfig& config, SkinManager& skins, std::string home)
    : config_(config),
      mounts_(config),
      accounts_(config, mounts_),
      ip_filter_(config),
      plugins_(home) {
    IdentificationRequestProcessor::MakeInstanceIdentifier();
    types_.LoadFromHome(home);
    system_files_.LoadBuiltIn();
    ApplyLimits();
    plugins_.Reload();
    handler_ = std::make_unique<KorvelHttpRequestHandler>(KorvelHttpRequestHandler::Services{
        .config = &config_,
        .mounts = &mounts_,
        .accounts = &accounts_,
        .ip_filter = &ip_filter_,
        .skins = &skins,
        .limits = &limits_,
        .uploads = &uploads_,
        .types = &types_,
        .system_files = &system_files_,
        .plugins = &plugins_,
        .home = std::move(home),
        .port = [this] { return web_server_.GetPort(); },
    });
    web_server_.SetRequestHandler(handler_.get());
    web_server_.SetTransferStatusAggregator(&transfers_);
}

KorvelServer::~KorvelServer() {
    Stop();
}

void KorvelServer::ApplyLimits() {
    limits_.SetTotalLimit(config_.useDownloadConnectionLimit, config_.downloadConnectionLimit);
    limits_.SetPerAddressLimit(config_.usePerIPDownloadConnectionLimit,
                               config_.perIPdownloadConnectionLimit);
    transfers_.SetTotalLimits(config_.totalUploadSpeedLimit, config_.totalDownloadSpeedLimit);
    web_server_.SetKeepAliveTimeout(std::chrono::seconds(config_.GetKeepAliveTimeout()));
}

bool KorvelServer::Start(int port) {
    if (!web_server_.Listen(port)) return false;
    Log(kLogNotice, "=======================");
    LogTranslated(kLogNotice, "Korvel Lumidrop 시작...");
    return true;
}

void KorvelServer::Stop() {
    web_server_.Stop();
}

}  // namespace Zarn
