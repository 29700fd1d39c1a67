#include "interprocess/feval/server/detail.h"

namespace interprocess::feval::server::detail {

std::shared_ptr<zrt::ZRT> getZrt() {
    // Never destroyed: threads of Python code may still print while the
    // process runs its exit handlers.
    static const auto* engine = new std::shared_ptr<zrt::ZRT>(std::make_shared<zrt::ZRT>());
    return *engine;
}

cmddistributor::RunOptions runOptionsFactory() {
    return cmddistributor::RunOptions{};
}

}  // namespace interprocess::feval::server::detail
