#include "service/close_handler.h"

#include "base/handler_support.h"

namespace pylnk {

// Finalises the interpreter. Threads started by Python code are waited for a
// short while and then left behind (the bridge documents how); the reply
// always comes, and the main loop discards every request after this one.
void pyCloseHandler::execute(const std::string&, size_t, ReplyPromise* promise, size_t,
                             foundation::veltradata::Array*) {
    try {
        pylnk_core::api::interpreter::pyClose();
    } catch (const pylnk_core::InternalPyException&) {
        exception::pyErrorClear();
    }
    reply(promise, successString());
}

}  // namespace pylnk
