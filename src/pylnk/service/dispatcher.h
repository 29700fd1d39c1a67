// Runs one request on the Python thread: the built-ins, or the handler of
// the command found in the table.
#pragma once

#include "service/request_queue.h"

namespace pylnk {

void dispatch(HandlerTable& table, const std::string& name, size_t nlhs, ReplyPromise* promise,
              size_t nrhs, foundation::veltradata::Array* prhs);

}  // namespace pylnk
