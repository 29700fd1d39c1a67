#include "commands/error_handlers.h"

#include "base/handler_support.h"

namespace pylnk {

VX_EXECUTE(pyErrorClearHandler) {
    exception::pyErrorClear();
    reply(promise, successString());
}

VX_EXECUTE(pyErrorOccurredHandler) {
    reply(promise, truthValue(exception::pyErrorOccurred()));
}

// With no error set the bridge still gives an object (a tuple of three
// None), so the reply is always an address.
VX_EXECUTE(pyErrorFetchHandler) {
    reply(promise, objectAddress(exception::pyErrorFetch()));
}

}  // namespace pylnk
