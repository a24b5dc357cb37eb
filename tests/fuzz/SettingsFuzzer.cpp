// mount.ini as an owner's editor, or a broken disk, may leave it. Loading takes what it can;
// what it took is saved, and the saved text reads back to the same settings.
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "config/KorvelConfig.h"

using namespace Zarn;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream in(std::string(reinterpret_cast<const char*>(data), size));
    KorvelConfig config;
    (void)config.AbstractConfig::Load(in);
    std::ostringstream saved;
    if (!config.AbstractConfig::Save(saved)) return 0;

    KorvelConfig reread;
    std::istringstream again(saved.str());
    if (!reread.AbstractConfig::Load(again)) __builtin_trap();
    std::ostringstream resaved;
    if (!reread.AbstractConfig::Save(resaved) || resaved.str() != saved.str()) __builtin_trap();
    return 0;
}
