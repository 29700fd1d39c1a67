
#include "base/handler_support.h"

namespace pylnk {

VX_COMMAND_WITH(pyErrorClearHandler, "pyErrorClear", 0, Used) {
    exception::pyErrorClear();
    reply(promise, successString());
}

VX_COMMAND_WITH(pyErrorOccurredHandler, "pyErrorOccurred", 0, Used) {
    reply(promise, truthValue(exception::pyErrorOccurred()));
}

// With no error set the bridge still gives an object (a tuple of three
// None), so the reply is always an address.
VX_COMMAND_WITH(pyErrorFetchHandler, "pyErrorFetch", 0, Used) {
    reply(promise, objectAddress(exception::pyErrorFetch()));
}

}  // namespace pylnk
