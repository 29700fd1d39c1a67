#pragma once

#include <boost/shared_ptr.hpp>
#include <streambuf>

#include "qlutil/io/sink_traits.h"

namespace cmddistributor {

// Options of one engine request. Copies share the stream they refer to.
class RunOptions {
  public:
    using StreamBuf = std::basic_streambuf<char16_t>;

    // Where the engine reports a failure of the request; an empty pointer
    // means nowhere.
    void setErrStream(boost::shared_ptr<StreamBuf> stream, qlutil::io::SinkTraits traits);
    const boost::shared_ptr<StreamBuf>& errStream() const noexcept { return errStream_; }
    const qlutil::io::SinkTraits& errSinkTraits() const noexcept { return errTraits_; }

    static qlutil::io::SinkTraits getDefaultSinkTraits();

  private:
    boost::shared_ptr<StreamBuf> errStream_;
    qlutil::io::SinkTraits errTraits_ = getDefaultSinkTraits();
};

}  // namespace cmddistributor
