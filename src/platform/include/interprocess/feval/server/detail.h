// What the worker's command server gives to a library that it has loaded.
#pragma once

#include <memory>

#include "cmddistributor/run_options.h"
#include "zrt/zrt.h"

namespace interprocess::feval::server::detail {

// The worker's engine; one per process, created on first use.
std::shared_ptr<zrt::ZRT> getZrt();

// The options of a request from this worker: no error stream.
cmddistributor::RunOptions runOptionsFactory();

}  // namespace interprocess::feval::server::detail
