#include "skin/SkinManager.h"

#include "core/EmbeddedResources.h"
#include "core/FileContents.h"
#include "core/PathUtil.h"
#include "core/TekoFileFind.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "skin/Unzip.h"

namespace Zarn {
namespace {

Skin::FileReader FolderReader(const std::string& folder) {
    return [folder](const std::string& name) { return ReadWholeFile(JoinPath(folder, name)); };
}

// The name as a log line may show it: control characters become "?".
std::string Printable(std::string_view name) {
    std::string shown(name);
    for (char& c : shown) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
    }
    return shown;
}

std::shared_ptr<const Skin> BuildBuiltIn() {
    std::optional<std::string_view> archive = FindEmbeddedResource(SkinManager::kBuiltInResource);
    if (!archive) return nullptr;
    auto unzip = std::make_shared<Teko::Unzip>();
    if (!unzip->Load(archive->data(), archive->size())) return nullptr;
    return Skin::Build(SkinManager::kBuiltInName,
                       [unzip](const std::string& name) { return unzip->Extract(name); });
}

}  // namespace

SkinManager& SkinManager::Instance() {
    static SkinManager instance;
    return instance;
}

CriticalSection& SkinManager::DevelopersModeLock() {
    static CriticalSection lock;
    return lock;
}

void SkinManager::LoadFolderSkins(const std::string& home,
                                  std::map<std::string, std::shared_ptr<const Skin>>& skins) {
    std::string folder = JoinPath(home, "skin");
    TekoFileFind find;
    for (bool found = find.FindFirst(JoinPath(folder, "*")); found; found = find.FindNext()) {
        if (find.IsDots() || !find.IsDirectory()) continue;
        std::string name = find.GetName();
        if (!IsAcceptableName(name)) {
            LogTranslated(kLogError, "스킨 이름에 쓸 수 없는 글자가 있어 건너뜁니다: %s",
                          Printable(name).c_str());
            continue;
        }
        if (auto skin = Skin::Build(name, FolderReader(JoinPath(folder, name)))) {
            skins[name] = std::move(skin);
        }
    }
}

void SkinManager::LoadAll(const std::string& home, const std::string& default_skin) {
    std::map<std::string, std::shared_ptr<const Skin>> skins;
    LoadFolderSkins(home, skins);
    if (auto developer = Skin::Build(kDeveloperName, FolderReader(JoinPath(home, "res/skin")))) {
        skins[kDeveloperName] = std::move(developer);
    }
    if (auto built_in = BuildBuiltIn()) skins[kBuiltInName] = std::move(built_in);
    {
        std::lock_guard lock(mutex_);
        skins_.clear();
        for (auto& [name, skin] : skins)
            skins_.emplace(name, std::move(skin));
    }
    SelectDefault(default_skin);
}

void SkinManager::SelectDefault(const std::string& default_skin) {
    if (!default_skin.empty() && Select(default_skin)) {
        LogTranslated(kLogNotice, "%s 스킨을 기본스킨으로 설정", default_skin.c_str());
        return;
    }
    {
        std::lock_guard lock(mutex_);
        selected_ = kBuiltInName;
    }
    if (!default_skin.empty()) {
        LogTranslated(kLogError, "기본스킨으로 지정된 %s 스킨이 없음!", default_skin.c_str());
    }
}

bool SkinManager::IsAcceptableName(std::string_view name) {
    if (name.empty()) return false;
    for (char c : name) {
        auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F ||
            std::string_view("/\\:%?#").find(c) != std::string_view::npos) {
            return false;
        }
    }
    return true;
}

void SkinManager::Register(std::shared_ptr<const Skin> skin) {
    if (!skin || !IsAcceptableName(skin->GetName())) return;
    std::lock_guard lock(mutex_);
    skins_.insert_or_assign(skin->GetName(), std::move(skin));
}

bool SkinManager::Has(std::string_view name) const {
    std::lock_guard lock(mutex_);
    return skins_.find(name) != skins_.end();
}

bool SkinManager::Select(std::string_view name) {
    std::lock_guard lock(mutex_);
    if (skins_.find(name) == skins_.end()) return false;
    selected_ = std::string(name);
    return true;
}

std::string SkinManager::GetSelectedName() const {
    std::lock_guard lock(mutex_);
    return selected_;
}

std::shared_ptr<const Skin> SkinManager::GetSelected() const {
    std::lock_guard lock(mutex_);
    auto found = skins_.find(selected_);
    return found == skins_.end() ? nullptr : found->second;
}

std::shared_ptr<const Skin> SkinManager::Find(std::string_view name) const {
    std::lock_guard lock(mutex_);
    auto found = skins_.find(name);
    return found == skins_.end() ? nullptr : found->second;
}

std::vector<std::string> SkinManager::ListNames() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> names;
    for (const auto& [name, skin] : skins_)
        names.push_back(name);
    return names;
}

}  // namespace Zarn
