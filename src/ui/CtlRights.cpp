#include "ui/CtlRights.h"

#include <cstdio>
#include <cstring>

#include "core/JsonValue.h"
#include "ui/CtlTable.h"

namespace Zarn {
namespace {

constexpr char kLetters[] = "ldua";

}  // namespace

std::optional<int> CtlRights::Parse(const std::string& text) {
    if (text == "-") return 0;
    if (!text.empty() && text.size() <= 2 && text.find_first_not_of("0123456789") == text.npos) {
        int bits = std::stoi(text);
        return bits <= 15 ? std::optional<int>(bits) : std::nullopt;
    }
    if (text.empty()) return std::nullopt;
    int bits = 0;
    for (char c : text) {
        const char* letter = c == '\0' ? nullptr : std::strchr(kLetters, c);
        if (letter == nullptr) return std::nullopt;
        bits |= 1 << (letter - kLetters);
    }
    return bits;
}

std::string CtlRights::Letters(int bits) {
    std::string text;
    for (int i = 0; i < 4; ++i)
        text += (bits & (1 << i)) != 0 ? kLetters[i] : '-';
    return text;
}

void CtlRights::PrintTable(const JsonValue& answer) {
    CtlTable table;
    table.Add({"ACCOUNT", "MOUNT", "RIGHTS"});
    const JsonValue* rights = answer.Find("rights");
    if (rights != nullptr) {
        for (size_t i = 0; i < rights->Items().size(); ++i) {
            const JsonValue& grants = rights->Items()[i];
            for (size_t j = 0; j < grants.Items().size(); ++j) {
                table.Add({rights->Names()[i], grants.Names()[j],
                           Letters(static_cast<int>(grants.Items()[j].AsInteger().value_or(0)))});
            }
        }
    }
    table.Print();
}

void CtlRights::PrintGrant(const JsonValue& grant) {
    std::optional<int64_t> bits = grant.Integer("rights");
    std::printf("%s  %s  %s\n", grant.Text("account").c_str(), grant.Text("mount").c_str(),
                Letters(static_cast<int>(bits.value_or(0))).c_str());
}

}  // namespace Zarn
