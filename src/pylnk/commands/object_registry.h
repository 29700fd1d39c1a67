// The object registry: the addresses that have crossed to the host, each
// standing for exactly one Python reference held by the registry.
#pragma once

#include <cstddef>
#include <cstdint>

#include "contracts/python_bridge.h"

namespace pylnk {

// Makes the object an address for the host. However often an object crosses,
// the registry holds one reference on it.
std::uint64_t objectRegistryRetain(boost::shared_ptr<python::pyArray> object);

// Gives up the registry's reference; an address that is not registered
// (released already, or never retained) is left alone.
void objectRegistryRelease(python::pyArray* object);

// Number of registered addresses (for diagnostics and tests).
size_t objectRegistrySize();

}  // namespace pylnk
