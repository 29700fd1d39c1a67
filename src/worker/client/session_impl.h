// The inside of a Session: its options and the connection to its current
// worker. Objects of the session keep the connection of the worker that
// made them, never the Session itself.
#pragma once

#include <memory>
#include <mutex>
#include <optional>

#include "connection.h"
#include "vxpy/client.h"

namespace vxpy {

class Session::Impl {
  public:
    Options options;
    mutable std::mutex mutex;  // guards connection and closed
    std::shared_ptr<detail::Connection> connection;
    bool closed = false;

    // The current worker's connection; Error once the session is closed.
    std::shared_ptr<detail::Connection> current() const;

    // The objects of the current worker, made on first use (object_space.cpp).
    std::shared_ptr<detail::ObjectSpace> objects();
    std::shared_ptr<detail::ObjectSpace> space;  // guarded by mutex

    void close(std::optional<std::chrono::milliseconds> limit);
};

}  // namespace vxpy
