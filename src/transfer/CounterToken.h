#pragma once

namespace Zarn {

class ICounterTokenManager;

// A counted place held by one request (a running download), given back when the token is
// destroyed, released or acquired again. Move-only; owned by one thread. The manager
// must outlive every token that holds one of its places.
class CounterToken {
public:
    CounterToken() = default;
    ~CounterToken() { Release(); }
    CounterToken(CounterToken&& other) noexcept;
    CounterToken& operator=(CounterToken&& other) noexcept;
    CounterToken(const CounterToken&) = delete;
    CounterToken& operator=(const CounterToken&) = delete;

    [[nodiscard]] bool IsHeld() const { return manager_ != nullptr; }
    [[nodiscard]] int GetSlot() const { return slot_; }

    // Gives the place back, if the token holds one.
    void Release();

private:
    friend class ICounterTokenManager;

    ICounterTokenManager* manager_ = nullptr;
    int slot_ = 0;
};

}  // namespace Zarn
