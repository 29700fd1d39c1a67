#include "cmddistributor/run_options.h"

#include <utility>

namespace cmddistributor {

void RunOptions::setErrStream(boost::shared_ptr<StreamBuf> stream, qlutil::io::SinkTraits traits) {
    errStream_ = std::move(stream);
    errTraits_ = traits;
}

qlutil::io::SinkTraits RunOptions::getDefaultSinkTraits() {
    return qlutil::io::SinkTraits{};
}

}  // namespace cmddistributor
