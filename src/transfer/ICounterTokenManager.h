#pragma once

#include "transfer/CounterToken.h"

namespace Zarn {

// Gives out counted places held by CounterTokens and takes them back.
class ICounterTokenManager {
public:
    virtual ~ICounterTokenManager() = default;

    // Gives back the place at `slot`. Never fails: a release too many is absorbed.
    virtual void Release(int slot) = 0;

protected:
    // The only way a token comes to hold a place; the token must hold nothing.
    void HandOut(CounterToken& token, int slot) {
        token.manager_ = this;
        token.slot_ = slot;
    }
};

}  // namespace Zarn
