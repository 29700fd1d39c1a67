#include "commands/object_registry.h"

#include <unordered_set>

namespace pylnk {
namespace {

// Touched on the Python thread only, hence no lock.
std::unordered_set<std::uint64_t>& registry() {
    // Never destroyed: the Python thread may run a command while the process
    // runs its exit handlers.
    static auto* addresses = new std::unordered_set<std::uint64_t>;
    return *addresses;
}

}  // namespace

std::uint64_t objectRegistryRetain(boost::shared_ptr<python::pyArray> object) {
    python::pyArray* raw = object.get();
    const auto key = reinterpret_cast<std::uint64_t>(raw);
    if (registry().insert(key).second) {
        managed::pyAddReference(raw);
    }
    return key;
}

void objectRegistryRelease(python::pyArray* object) {
    const auto key = reinterpret_cast<std::uint64_t>(object);
    if (registry().erase(key) == 0) {
        return;
    }
    managed::pyDeleteObject(object);
}

size_t objectRegistrySize() {
    return registry().size();
}

}  // namespace pylnk
