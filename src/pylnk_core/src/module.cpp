#include "pylnk_core/module.h"
#include "runtime.h"
#include "text.h"

namespace pylnk_core::api::module {

using namespace detail;

PyHolder pyCreateModule(const std::u16string& name) {
    return hold(importModule(toUtf8(name).c_str()));
}

PyHolder pyCreateBuiltinsModule() {
    return hold(importModule("builtins"));
}

std::u16string pyGetBuiltinsName() {
    return u"builtins";
}

PyHolder pyInvokeInt(python::pyArray* object) {
    return hold(checked(py().PyNumber_Long(need(object))));
}

bool pyIsModule(python::pyArray* object) {
    return quietly([&] { return isInstanceQuiet(object, py().ModuleType); });
}

}  // namespace pylnk_core::api::module
