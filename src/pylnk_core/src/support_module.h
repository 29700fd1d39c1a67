// Python source of the bridge's own helper functions.
#pragma once

namespace pylnk_core::detail {

// Compiled once per interpreter, in this order, into one private namespace
// (see callSupport). Written for every supported version, 3.8 and later.
// Each area of the bridge that is plain Python keeps its source in a file of
// its own and adds it to the list in support_module.cpp.
extern const char* const kSupportSource;
extern const char* const kDataframeSupportSource;
extern const char* const kDatesSupportSource;
const char* const* supportSources();

}  // namespace pylnk_core::detail
