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

// One row per renamed entry point: its older and newer symbol, and the minor
// version from which the newer one is used.
struct RenamedEntry {
    const char* olderSymbol;
    const char* newerSymbol;
    std::size_t offset;
    int renamedInMinor;
};

constexpr RenamedEntry kRenamedEntries[] = {
#define PYLNK_CAPI_ENTRY(name, ret, params, older, newer, since) \
    {older, newer, offsetof(Table, name), since},
    PYLNK_CAPI_RENAMED_FUNCTIONS(PYLNK_CAPI_ENTRY)
#undef PYLNK_CAPI_ENTRY
};

}  // namespace

const char* bind(void* libraryHandle, int minorVersion, Table& table) {
    Table filled;
    // Every member is a pointer of the size of void*; copying the bytes
    // avoids casting between object and function pointers.
    const auto resolve = [&](const char* symbol, std::size_t offset) {
        void* address = ::dlsym(libraryHandle, symbol);
        std::memcpy(reinterpret_cast<char*>(&filled) + offset, &address, sizeof address);
        return address != nullptr;
    };
    for (const Entry& entry : std::span(kEntries)) {
        if (entry.sinceMinor <= minorVersion && !resolve(entry.symbol, entry.offset)) {
            return entry.symbol;
        }
    }
    for (const RenamedEntry& entry : std::span(kRenamedEntries)) {
        const char* symbol =
            minorVersion >= entry.renamedInMinor ? entry.newerSymbol : entry.olderSymbol;
        if (!resolve(symbol, entry.offset)) {
            return symbol;
        }
    }
    table = filled;
    return nullptr;
}

}  // namespace pylnk_core::capi
