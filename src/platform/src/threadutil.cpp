#include "foundation/msg_svc/threadutil.h"

#include <utility>

namespace foundation::msg_svc::threadutil {

boost::thread create_thread_with_max_stacksize(std::function<void()> body) {
    boost::thread::attributes attributes;
    attributes.set_stack_size(kMaxThreadStackSize);
    return boost::thread(attributes, std::move(body));
}

}  // namespace foundation::msg_svc::threadutil
