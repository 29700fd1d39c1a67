#include "interprocess/feval/server/detail.h"

namespace interprocess::feval::server::detail {

std::shared_ptr<zrt::ZRT> getZrt() {
    static const std::shared_ptr<zrt::ZRT> engine = std::make_shared<zrt::ZRT>();
    return engine;
}

cmddistributor::RunOptions runOptionsFactory() {
    return cmddistributor::RunOptions{};
}

}  // namespace interprocess::feval::server::detail
