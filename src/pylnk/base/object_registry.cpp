#include "base/object_registry.h"

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

// The innermost live RegistryRollback, if any.
RegistryRollback*& currentRollback() {
    static RegistryRollback* current = nullptr;
    return current;
}

}  // namespace

std::uint64_t objectRegistryRetain(python::pyArray* object) {
    const auto key = reinterpret_cast<std::uint64_t>(object);
    if (registry().insert(key).second) {
        managed::pyAddReference(object);
        if (RegistryRollback* rollback = currentRollback()) {
            rollback->added_.push_back(key);
        }
    }
    return key;
}

std::uint64_t objectRegistryRetain(boost::shared_ptr<python::pyArray> object) {
    return objectRegistryRetain(object.get());
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

RegistryRollback::RegistryRollback() : outer_(currentRollback()) {
    currentRollback() = this;
}

RegistryRollback::~RegistryRollback() {
    currentRollback() = outer_;
    if (kept_) {
        if (outer_ != nullptr) {
            outer_->added_.insert(outer_->added_.end(), added_.begin(), added_.end());
        }
        return;
    }
    for (auto key = added_.rbegin(); key != added_.rend(); ++key) {
        objectRegistryRelease(reinterpret_cast<python::pyArray*>(*key));
    }
}

}  // namespace pylnk
