#pragma once

#include <atomic>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace Zarn {

// A key/value store bound to member variables of a settings object, read from and
// written to a line-oriented text:
//   key=value    sets a single item (the value may hold "=")
//   key+=value   appends one element to a list
// Keys and values are trimmed of CR, LF, tab and blank; there is no comment syntax,
// quoting or escaping. Unknown keys are skipped. The store has no lock of its own: the
// owner of the bound variables decides who may touch them.
class AbstractConfig {
public:
    // A line this long or longer is read whole and then ignored.
    static constexpr size_t kMaxLineBytes = 8192;

    class AbstractConfigItem {
    public:
        virtual ~AbstractConfigItem() = default;
        [[nodiscard]] virtual std::string Get() const = 0;
        // A value that does not parse as the item's type leaves the variable unchanged.
        virtual void Set(const std::string& value) = 0;
        // Whether the whole value parses as the item's type, nothing left over.
        [[nodiscard]] virtual bool Accepts(const std::string& value) const = 0;
    };

    template <typename T>
    class ConfigItem;

    class AbstractConfigContainer {
    public:
        virtual ~AbstractConfigContainer() = default;
        virtual void Get(std::vector<std::string>& out) const = 0;
        virtual void Add(const std::string& value) = 0;
        virtual void Clear() = 0;
    };

    class ConfigContainer;

    AbstractConfig() = default;
    virtual ~AbstractConfig();
    AbstractConfig(const AbstractConfig&) = delete;
    AbstractConfig& operator=(const AbstractConfig&) = delete;

    // Binds a key to a variable and sets the variable to the default. A key that is
    // already registered is left alone, variable and all.
    void Register(const std::string& key, bool* variable, bool default_value);
    void Register(const std::string& key, unsigned short* variable, unsigned short default_value);
    void Register(const std::string& key, int* variable, int default_value);
    void Register(const std::string& key, std::atomic<bool>* variable, bool default_value);
    void Register(const std::string& key, std::atomic<unsigned short>* variable,
                  unsigned short default_value);
    void Register(const std::string& key, std::atomic<int>* variable, int default_value);
    void Register(const std::string& key, std::string* variable, const std::string& default_value);
    void RegisterList(const std::string& key, std::vector<std::string>* variable);

    // Each is false, changing nothing, when the key is not registered.
    bool SetItem(const std::string& key, const std::string& value);
    bool GetItem(const std::string& key, std::string& value) const;
    bool AddToList(const std::string& key, const std::string& value);
    bool ClearList(const std::string& key);
    bool GetList(const std::string& key, std::vector<std::string>& out) const;
    // Whether the key is a registered item and the value parses whole as its type.
    [[nodiscard]] bool Accepts(const std::string& key, const std::string& value) const;

    [[nodiscard]] std::vector<std::string> ItemKeys() const;
    [[nodiscard]] std::vector<std::string> ListKeys() const;

    // Clears every list, then applies the stream's lines. False, changing nothing, when
    // the stream is not good to begin with.
    bool Load(std::istream& in);
    // Items sorted by key, then every list's elements, lists sorted by key; each line
    // ends with CR LF. False when the stream is not good to begin with.
    bool Save(std::ostream& out) const;

private:
    template <typename V, typename T>
    void RegisterItem(const std::string& key, V* variable, T default_value);
    void ApplyLine(std::string_view line);

    std::map<std::string, std::unique_ptr<AbstractConfigItem>> items_;
    std::map<std::string, std::unique_ptr<AbstractConfigContainer>> containers_;
};

}  // namespace Zarn
