#include "transfer/CounterToken.h"

#include <utility>

#include "transfer/ICounterTokenManager.h"

namespace Zarn {

CounterToken::CounterToken(CounterToken&& other) noexcept
    : manager_(std::exchange(other.manager_, nullptr)), slot_(std::exchange(other.slot_, 0)) {}

CounterToken& CounterToken::operator=(CounterToken&& other) noexcept {
    if (this != &other) {
        Release();
        manager_ = std::exchange(other.manager_, nullptr);
        slot_ = std::exchange(other.slot_, 0);
    }
    return *this;
}

void CounterToken::Release() {
    ICounterTokenManager* manager = std::exchange(manager_, nullptr);
    int slot = std::exchange(slot_, 0);
    if (manager != nullptr) manager->Release(slot);
}

}  // namespace Zarn
