#include "share/ObjectIdentifier.h"

#include <atomic>

namespace Zarn {

uint32_t NextObjectIdentifier() {
    static std::atomic<uint32_t> counter{1};
    return counter.fetch_add(1);
}

}  // namespace Zarn
