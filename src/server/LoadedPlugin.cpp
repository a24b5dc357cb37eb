#include "server/LoadedPlugin.h"

#include <dlfcn.h>

#include <mutex>
#include <set>

#include "core/PathUtil.h"
#include "core/StringUtil.h"
#include "i18n/Translate.h"
#include "log/Log.h"
#include "server/PluginHostTable.h"

namespace Zarn {
namespace {

bool IsValidPluginName(std::string_view name) {
    if (name.empty() || name.size() > 64) return false;
    for (char c : name) {
        bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        if (!letter && !(c >= '0' && c <= '9') && c != '-' && c != '_') return false;
    }
    return true;
}

std::string TextOf(const char* (*entry)()) {
    const char* text = entry();
    return text == nullptr ? std::string() : std::string(text);
}

// The handles of every plug-in library open in the process.
std::mutex open_mutex;
std::set<void*> open_handles;

}  // namespace

// The handle of dlopen, closed once.
struct LoadedPlugin::Library {
    void* handle = nullptr;
    explicit Library(void* opened) : handle(opened) {}
    ~Library() {
        {
            std::lock_guard hold(open_mutex);
            open_handles.erase(handle);
        }
        ::dlclose(handle);
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // The entry point of that name as a function of type T, or null.
    template <typename T>
    [[nodiscard]] T Entry(const char* name) const {
        return reinterpret_cast<T>(::dlsym(handle, name));
    }
};

std::unique_ptr<LoadedPlugin> LoadedPlugin::Load(const std::string& path, const std::string& home,
                                                 PluginStatus& status) {
    status = PluginStatus{};
    size_t slash = path.rfind('/');
    status.file = slash == std::string::npos ? path : path.substr(slash + 1);
    auto plugin = std::make_unique<LoadedPlugin>(Passkey());
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    bool first = false;
    if (handle != nullptr) {
        std::lock_guard hold(open_mutex);
        first = open_handles.insert(handle).second;
    }
    if (handle == nullptr) {
        const char* error = ::dlerror();
        status.status = FormatTranslated("라이브러리를 열 수 없습니다: %s",
                                         error != nullptr ? error : path.c_str());
    } else if (!first) {
        ::dlclose(handle);
        status.status = Translate("같은 라이브러리를 이미 쓰고 있습니다");
    } else {
        plugin->library_ = std::make_unique<Library>(handle);
        plugin->status_.file = status.file;
        if (plugin->Initialize(home)) {
            status = plugin->status_;
            return plugin;
        }
        status = plugin->status_;
    }
    LogTranslated(kLogError, "플러그인 %s을(를) 쓰지 않습니다: %s", path.c_str(),
                  status.status.c_str());
    return nullptr;
}

bool LoadedPlugin::Describe() {
    const Library& library = *library_;
    using Text = const char* (*)();
    auto author = library.Entry<Text>("GetPlugInAuthor");
    auto name = library.Entry<Text>("GetPlugInName");
    auto version = library.Entry<Text>("GetPlugInVersion");
    auto type = library.Entry<int (*)()>("GetPlugInType");
    auto authority = library.Entry<unsigned (*)()>("GetRequiredAuthority");
    initialize_ = library.Entry<unsigned (*)(const LumidropHost*, unsigned)>("Initialize");
    finalize_ = library.Entry<void (*)()>("Finalize");
    on_request_ = library.Entry<int (*)(LumidropRequest*)>("OnRequest");
    const std::pair<const char*, bool> entries[] = {
        {"GetPlugInAuthor", author != nullptr},   {"GetPlugInName", name != nullptr},
        {"GetPlugInVersion", version != nullptr}, {"GetPlugInType", type != nullptr},
        {"Initialize", initialize_ != nullptr},   {"Finalize", finalize_ != nullptr},
        {"OnRequest", on_request_ != nullptr},    {"GetRequiredAuthority", authority != nullptr}};
    for (const auto& [entry, found] : entries) {
        if (!found) {
            status_.status = FormatTranslated("진입점 %s이(가) 없습니다", entry);
            return false;
        }
    }
    status_.name = TextOf(name);
    status_.author = TextOf(author);
    status_.version = TextOf(version);
    status_.type = type();
    needed_rights_ = (authority() & 0xFu) | LUMIDROP_RIGHT_LIST;
    return true;
}

bool LoadedPlugin::Initialize(const std::string& home) {
    if (!Describe()) return false;
    if (!IsValidPluginName(status_.name)) {
        status_.status = Translate("이름이 올바르지 않습니다 (영문자, 숫자, -, _ 1~64자)");
        return false;
    }
    if (status_.type != LUMIDROP_PLUGIN_VIEW && status_.type != LUMIDROP_PLUGIN_ACTION) {
        status_.status = FormatTranslated("알 수 없는 종류입니다: %d", status_.type);
        status_.type = 0;
        return false;
    }
    status_.folder = JoinPath(JoinPath(home, "Plugin"), status_.name) + "/";
    host_ = MakePluginHost(status_.folder.c_str());
    unsigned built_for = initialize_(&host_, LUMIDROP_PLUGIN_INTERFACE_VERSION);
    if (built_for == 0) {
        status_.status = Translate("Initialize가 실패했습니다");
        return false;
    }
    initialized_ = true;
    if (built_for > LUMIDROP_PLUGIN_INTERFACE_VERSION) {
        status_.status =
            FormatTranslated("더 새로운 인터페이스(버전 %u)용입니다. 이 프로그램은 버전 %u입니다",
                             built_for, static_cast<unsigned>(LUMIDROP_PLUGIN_INTERFACE_VERSION));
        return false;
    }
    status_.status = "loaded";
    return true;
}

LoadedPlugin::LoadedPlugin(Passkey /*unused*/) {}

LoadedPlugin::~LoadedPlugin() {
    if (initialized_) finalize_();
}

}  // namespace Zarn
