// Resolving a fully qualified Python name.
#pragma once

#include <string>

#include "pylnk_core/errors.h"
#include "pylnk_core/types.h"

namespace pylnk_core::fetch {

// Resolves a dotted name such as "os.path.join" or "numpy.linalg.norm" to the
// object it names.
//
// The name must be identifiers separated by single dots; anything else
// (empty, leading, trailing or doubled dots, spaces, other characters) throws
// BadPythonName. The longest prefix that can be imported as a module is
// imported, and the remaining parts are read as attributes one after the
// other; when an attribute is missing on a module, the submodule of that name
// is imported. A first part that is no module is looked up in builtins, so
// "len" and "str.join" resolve. A name that leads nowhere, or an import that
// fails for another reason, throws SearchFailure with the cause in its
// message. Neither exception leaves a Python error set.
api::PyHolder fetch(const std::u16string& name);

}  // namespace pylnk_core::fetch
