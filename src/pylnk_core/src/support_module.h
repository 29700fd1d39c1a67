// Python source of the bridge's own helper functions.
#pragma once

namespace pylnk_core::detail {

// Compiled once per interpreter into a private namespace (see callSupport).
// Written for every supported version, 3.8 and later.
extern const char* const kSupportSource;

}  // namespace pylnk_core::detail
