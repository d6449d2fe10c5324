#include "awaited_service.h"

namespace boundary {

AwaitedService::AwaitedService(const std::function<void()>&) {}
AwaitedService::~AwaitedService() = default;
bool AwaitedService::hasReplied() const {
    return true;
}

}  // namespace boundary
