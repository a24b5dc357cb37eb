#include "transfer/NullTransferStatusAggregator.h"

namespace Zarn {

NullTransferStatusAggregator& NullTransferStatusAggregator::Instance() {
    static NullTransferStatusAggregator instance;
    return instance;
}

}  // namespace Zarn
