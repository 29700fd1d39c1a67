#include "capi.h"

#include <dlfcn.h>

#include <cstring>
#include <span>

namespace pylnk_core::capi {
namespace {

// One row per entry point: where it goes in the table and from which minor
// version on it must exist.
struct Entry {
    const char* symbol;
    std::size_t offset;
    int sinceMinor;
};

constexpr Entry kEntries[] = {
#define PYLNK_CAPI_ENTRY(name, ret, params, since) {#name, offsetof(Table, name), since},
    PYLNK_CAPI_FUNCTIONS(PYLNK_CAPI_ENTRY)
#undef PYLNK_CAPI_ENTRY
#define PYLNK_CAPI_ENTRY(member, symbol, type) {symbol, offsetof(Table, member), 0},
        PYLNK_CAPI_OBJECTS(PYLNK_CAPI_ENTRY)
#undef PYLNK_CAPI_ENTRY
};

}  // namespace

const char* bind(void* libraryHandle, int minorVersion, Table& table) {
    Table filled;
    for (const Entry& entry : std::span(kEntries)) {
        if (entry.sinceMinor > minorVersion) {
            continue;
        }
        void* address = ::dlsym(libraryHandle, entry.symbol);
        if (address == nullptr) {
            return entry.symbol;
        }
        // Every member is a pointer of the size of void*; copying the bytes
        // avoids casting between object and function pointers.
        std::memcpy(reinterpret_cast<char*>(&filled) + entry.offset, &address, sizeof address);
    }
    table = filled;
    return nullptr;
}

}  // namespace pylnk_core::capi
