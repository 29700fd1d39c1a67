#pragma once

#include <cstdint>

namespace foundation::msg_svc::exchange {

// Identifies one request sent to the engine.
using IDType = std::uint64_t;

}  // namespace foundation::msg_svc::exchange
