#include <interprocess/pylnk/protocol.h>

#include "base/handler_support.h"

namespace pylnk {

// Finalises the interpreter. Threads started by Python code are waited for a
// short while and then left behind (the bridge documents how); the reply
// always comes, and the main loop discards every request after this one.
VX_COMMAND(pyCloseHandler, interprocess::pylnk::protocol::kCloseCommand, 0) {
    try {
        pylnk_core::api::interpreter::pyClose();
    } catch (const pylnk_core::InternalPyException&) {
        exception::pyErrorClear();
    }
    reply(promise, successString());
}

}  // namespace pylnk
