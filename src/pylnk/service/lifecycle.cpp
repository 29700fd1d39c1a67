#include "service/lifecycle.h"

#include "base/handler_support.h"

namespace pylnk {

foundation::veltradata::Array token(const char* value) {
    return text(std::string(value));
}

Lifecycle& lifecycle() {
    // Never destroyed: the Python thread lives until the process ends, also
    // while the process runs its exit handlers.
    static auto* instance = new Lifecycle;
    return *instance;
}

}  // namespace pylnk
