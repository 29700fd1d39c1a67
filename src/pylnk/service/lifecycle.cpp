#include "service/lifecycle.h"

#include "service/handler_support.h"

namespace pylnk {

foundation::veltradata::Array token(const char* value) {
    return text(std::string(value));
}

Lifecycle& lifecycle() {
    static Lifecycle instance;
    return instance;
}

}  // namespace pylnk
