// The object registry: the addresses that have crossed to the host, each
// standing for exactly one Python reference held by the registry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "contracts/python_bridge.h"

namespace pylnk {

// Makes the object an address for the host. However often an object crosses,
// the registry holds one reference on it.
std::uint64_t objectRegistryRetain(python::pyArray* object);
std::uint64_t objectRegistryRetain(boost::shared_ptr<python::pyArray> object);

// Gives up the registry's reference; an address that is not registered
// (released already, or never retained) is left alone.
void objectRegistryRelease(python::pyArray* object);

// Number of registered addresses (for diagnostics and tests).
size_t objectRegistrySize();

// Notes the addresses that become registered while it lives, and releases
// them again at its end unless keep() was called: a walk that fails half-way
// leaves no reference behind whose address never reached the host.
// Addresses registered before it began are not touched. Scopes nest; what an
// inner scope keeps, the outer one still releases if it is not kept.
class RegistryRollback {
  public:
    RegistryRollback();
    ~RegistryRollback();
    RegistryRollback(const RegistryRollback&) = delete;
    RegistryRollback& operator=(const RegistryRollback&) = delete;

    // The addresses are on their way to the host: they stay registered.
    void keep() { kept_ = true; }

  private:
    friend std::uint64_t objectRegistryRetain(python::pyArray* object);

    std::vector<std::uint64_t> added_;
    RegistryRollback* outer_;
    bool kept_ = false;
};

}  // namespace pylnk
