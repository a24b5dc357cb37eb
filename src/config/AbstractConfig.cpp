#include "config/AbstractConfig.h"

#include <atomic>
#include <sstream>
#include <type_traits>

#include "core/StringUtil.h"

namespace Zarn {
namespace {

// The value type behind a bound variable: a setting that threads read while the owner
// changes it is an atomic, parsed and printed as the plain value it holds.
template <typename V>
struct ValueOf {
    using type = V;
};
template <typename T>
struct ValueOf<std::atomic<T>> {
    using type = T;
};

}  // namespace

// Conversion goes through a string stream both ways, so flags read and write "0" and
// "1" and words such as "true" do not parse.
template <typename V>
class AbstractConfig::ConfigItem : public AbstractConfigItem {
    using T = typename ValueOf<V>::type;

public:
    explicit ConfigItem(V* variable) : variable_(variable) {}

    [[nodiscard]] std::string Get() const override {
        const T current = *variable_;
        std::ostringstream out;
        out << current;
        return out.str();
    }

    void Set(const std::string& value) override {
        std::istringstream in(value);
        T parsed{};
        if (in >> parsed) *variable_ = parsed;
    }

    [[nodiscard]] bool Accepts(const std::string& value) const override {
        // A stream reads "-1" into an unsigned number by wrapping it round.
        if constexpr (std::is_unsigned_v<T> && !std::is_same_v<T, bool>) {
            if (value.find('-') != std::string::npos) return false;
        }
        std::istringstream in(value);
        T parsed{};
        return in >> parsed && (in >> std::ws).eof();
    }

private:
    V* variable_;
};

template <>
class AbstractConfig::ConfigItem<std::string> : public AbstractConfigItem {
public:
    explicit ConfigItem(std::string* variable) : variable_(variable) {}
    [[nodiscard]] std::string Get() const override { return *variable_; }
    void Set(const std::string& value) override { *variable_ = value; }
    [[nodiscard]] bool Accepts(const std::string&) const override { return true; }

private:
    std::string* variable_;
};

class AbstractConfig::ConfigContainer : public AbstractConfigContainer {
public:
    explicit ConfigContainer(std::vector<std::string>* variable) : variable_(variable) {}
    void Get(std::vector<std::string>& out) const override { out = *variable_; }
    void Add(const std::string& value) override { variable_->push_back(value); }
    void Clear() override { variable_->clear(); }

private:
    std::vector<std::string>* variable_;
};

AbstractConfig::~AbstractConfig() = default;

template <typename V, typename T>
void AbstractConfig::RegisterItem(const std::string& key, V* variable, T default_value) {
    if (items_.contains(key)) return;
    *variable = std::move(default_value);
    items_.emplace(key, std::make_unique<ConfigItem<V>>(variable));
}

void AbstractConfig::Register(const std::string& key, bool* variable, bool default_value) {
    RegisterItem(key, variable, default_value);
}

void AbstractConfig::Register(const std::string& key, unsigned short* variable,
                              unsigned short default_value) {
    RegisterItem(key, variable, default_value);
}

void AbstractConfig::Register(const std::string& key, int* variable, int default_value) {
    RegisterItem(key, variable, default_value);
}

void AbstractConfig::Register(const std::string& key, std::atomic<bool>* variable,
                              bool default_value) {
    RegisterItem(key, variable, default_value);
}

void AbstractConfig::Register(const std::string& key, std::atomic<unsigned short>* variable,
                              unsigned short default_value) {
    RegisterItem(key, variable, default_value);
}

void AbstractConfig::Register(const std::string& key, std::atomic<int>* variable,
                              int default_value) {
    RegisterItem(key, variable, default_value);
}

void AbstractConfig::Register(const std::string& key, std::string* variable,
                              const std::string& default_value) {
    RegisterItem(key, variable, default_value);
}

void AbstractConfig::RegisterList(const std::string& key, std::vector<std::string>* variable) {
    if (containers_.contains(key)) return;
    containers_.emplace(key, std::make_unique<ConfigContainer>(variable));
}

bool AbstractConfig::SetItem(const std::string& key, const std::string& value) {
    auto found = items_.find(key);
    if (found == items_.end()) return false;
    found->second->Set(value);
    return true;
}

bool AbstractConfig::GetItem(const std::string& key, std::string& value) const {
    auto found = items_.find(key);
    if (found == items_.end()) return false;
    value = found->second->Get();
    return true;
}

bool AbstractConfig::AddToList(const std::string& key, const std::string& value) {
    auto found = containers_.find(key);
    if (found == containers_.end()) return false;
    found->second->Add(value);
    return true;
}

bool AbstractConfig::ClearList(const std::string& key) {
    auto found = containers_.find(key);
    if (found == containers_.end()) return false;
    found->second->Clear();
    return true;
}

bool AbstractConfig::GetList(const std::string& key, std::vector<std::string>& out) const {
    auto found = containers_.find(key);
    if (found == containers_.end()) return false;
    found->second->Get(out);
    return true;
}

bool AbstractConfig::Accepts(const std::string& key, const std::string& value) const {
    auto found = items_.find(key);
    return found != items_.end() && found->second->Accepts(value);
}

std::vector<std::string> AbstractConfig::ItemKeys() const {
    std::vector<std::string> keys;
    for (const auto& [key, item] : items_)
        keys.push_back(key);
    return keys;
}

std::vector<std::string> AbstractConfig::ListKeys() const {
    std::vector<std::string> keys;
    for (const auto& [key, container] : containers_)
        keys.push_back(key);
    return keys;
}

bool AbstractConfig::Load(std::istream& in) {
    if (!in.good()) return false;
    for (auto& [key, container] : containers_)
        container->Clear();
    std::string line;
    while (std::getline(in, line)) {
        if (line.size() >= kMaxLineBytes) continue;
        ApplyLine(line);
    }
    return true;
}

void AbstractConfig::ApplyLine(std::string_view line) {
    size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) return;
    std::string_view key = line.substr(0, equals);
    std::string value(Trim(line.substr(equals + 1)));
    if (key.back() == '+') {
        AddToList(std::string(Trim(key.substr(0, key.size() - 1))), value);
    } else {
        SetItem(std::string(Trim(key)), value);
    }
}

bool AbstractConfig::Save(std::ostream& out) const {
    if (!out.good()) return false;
    for (const auto& [key, item] : items_)
        out << key << '=' << item->Get() << "\r\n";
    std::vector<std::string> elements;
    for (const auto& [key, container] : containers_) {
        container->Get(elements);
        for (const std::string& element : elements)
            out << key << "+=" << element << "\r\n";
    }
    return true;
}

}  // namespace Zarn
