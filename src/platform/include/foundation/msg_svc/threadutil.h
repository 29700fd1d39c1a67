// Threads of the worker that need more stack than a default thread gets.
#pragma once

#include <boost/thread/thread.hpp>
#include <cstddef>
#include <functional>

namespace foundation::msg_svc::threadutil {

// 512 MiB of address space. Only the pages that are touched are committed, so
// the reservation costs nothing until code recurses that deep; an interpreter
// running deeply recursive user code would overflow the usual 8 MiB long before.
inline constexpr std::size_t kMaxThreadStackSize = std::size_t{512} << 20;

// Starts body on a new thread whose stack is kMaxThreadStackSize bytes.
// Throws boost::thread_resource_error when the system cannot provide it.
boost::thread create_thread_with_max_stacksize(std::function<void()> body);

}  // namespace foundation::msg_svc::threadutil
