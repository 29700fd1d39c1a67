// The session that the worker benchmarks drive: Debian's interpreter (it has
// NumPy), started once for the whole run.
#pragma once

#include <vxpy/client.h>

namespace vxbench {

inline vxpy::Session& session() {
    static vxpy::Session* const python = [] {
        auto* started = new vxpy::Session;
        started->start(vxpy::Interpreter::find("/usr/bin/python3"));
        return started;
    }();
    return *python;
}

}  // namespace vxbench
