// What a process has mapped of memfd memory, from its maps: the measure of
// "memory comes back" for the shared-memory connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace vxtest {

inline std::size_t memfdMappedBytes(int pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    std::size_t total = 0;
    for (std::string line; std::getline(maps, line);) {
        if (line.find("/memfd:") == std::string::npos) {
            continue;
        }
        std::uint64_t from = 0, to = 0;
        char dash;
        std::istringstream(line) >> std::hex >> from >> dash >> to;
        total += to - from;
    }
    return total;
}

}  // namespace vxtest
