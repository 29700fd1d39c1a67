
#include <iostream>
#include <stdexcept>

#include "base/exception_report.h"
#include "base/handler_support.h"
#include "base/object_registry.h"
#include "introspection/metadata_caches.h"

namespace pylnk {

namespace vd = foundation::veltradata;

VX_COMMAND(AddRefHandler, "AddRef", 1) {
    // A Python reference the registry knows nothing of: Release does not
    // give it back.
    managed::pyAddReference(addressArg(prhs, 0));
    reply(promise, successString());
}

VX_COMMAND(ReleaseHandler, "Release", 1) {
    // The host's side looks for this on the worker's own output.
    if (prhs[0].getType() != vd::ArrayType::UINT64) {
        std::cout << "what?" << std::endl;
    }
    objectRegistryRelease(addressArg(prhs, 0));
    reply(promise, successString());
}

VX_COMMAND(pyFetchHandler, "pyFetch", 1) {
    const std::u16string dotted = textArg(prhs, 0);
    boost::shared_ptr<python::pyArray> found;
    try {
        found = pylnk_core::fetch::fetch(dotted);
    } catch (const pylnk_core::fetch::BadPythonName&) {
        throw std::runtime_error("BadPythonName");
    } catch (const pylnk_core::fetch::SearchFailure&) {
        throw std::runtime_error("SearchFailure");
    }
    reply(promise, objectAddress(found));
}

VX_COMMAND(pyGetTypeHandler, "pyGetType", 1) {
    reply(promise, objectAddress(object::pyGetClass(addressArg(prhs, 0))));
}

VX_COMMAND(pyStrHandler, "pyStr", 1) {
    reply(promise, objectAddress(object::pyStr(addressArg(prhs, 0))));
}

VX_COMMAND(pyDirHandler, "pyDir", 1) {
    reply(promise, objectAddress(object::pyDir(addressArg(prhs, 0))));
}

VX_COMMAND(pyEqHandler, "pyEq", 2) {
    reply(promise, truthValue(object::pyEqual(addressArg(prhs, 0), addressArg(prhs, 1))));
}

VX_COMMAND(pyGetHashHandler, "pyGetHash", 1) {
    vd::Array hash;
    try {
        const long value = primitive::pyIntGetData(object::pyGetHash(addressArg(prhs, 0)).get());
        // Sign-extended: a negative hash arrives as a large unsigned number.
        hash = uint64Value(static_cast<std::uint64_t>(static_cast<std::int64_t>(value)));
    } catch (const pylnk_core::InternalPyException&) {
        // An unhashable object is an answer the host reads, not a failure.
        hash = reportFromInterpreter();
    }
    reply(promise, hash);
}

VX_COMMAND(pyIsInstanceHandler, "pyIsInstance", 2) {
    reply(promise, truthValue(object::pyIsInstance(addressArg(prhs, 0), addressArg(prhs, 1))));
}

VX_COMMAND(pyIsSubclassHandler, "pyIsSubclass", 2) {
    reply(promise, truthValue(type::pyTypeIsSubclass(addressArg(prhs, 0), addressArg(prhs, 1))));
}

VX_COMMAND(pyIsCallableHandler, "pyIsCallable", 1) {
    reply(promise, truthValue(object::pyIsCallable(addressArg(prhs, 0))));
}

VX_COMMAND(pyIsTypeHandler, "pyIsType", 1) {
    reply(promise, truthValue(object::pyIsType(addressArg(prhs, 0))));
}

VX_COMMAND(pyIsModuleHandler, "pyIsModule", 1) {
    reply(promise, truthValue(module::pyIsModule(addressArg(prhs, 0))));
}

namespace {

// Steps shared by the two import commands, run inside their guards: the
// cached metadata of the module is dropped, then the module is imported.
vd::Array importModule(const vd::CharArray& moduleName) {
    moduleMetadataCache().erase(moduleName.toAscii());
    return objectAddress(module::pyCreateModule(moduleName.toUTF16()));
}

}  // namespace

VX_COMMAND(pyCreateModuleHandler, "pyCreateModule", 1) {
    vd::CharArray moduleName(prhs[0]);
    try {
        reply(promise, importModule(moduleName));
    } catch (...) {
        exception::pyErrorClear();
        throw;
    }
}

VX_COMMAND(pyCreateModuleExceptionHandler, "pyCreateModuleException", 1) {
    vd::CharArray moduleName(prhs[0]);
    vd::Array result;
    try {
        result = importModule(moduleName);
    } catch (const pylnk_core::InternalPyException&) {
        // A failed import is an answer the host reads, not a failure.
        result = reportFromInterpreter();
    } catch (...) {
        exception::pyErrorClear();
        throw;
    }
    reply(promise, result);
}

VX_COMMAND(pyCreateBuiltinModuleHandler, "pyCreateBuiltinModule", 0) {
    reply(promise, objectAddress(module::pyCreateBuiltinsModule()));
}

VX_COMMAND(pyGetBuiltinsNameHandler, "pyGetBuiltinsName", 0) {
    reply(promise, text(module::pyGetBuiltinsName()));
}

}  // namespace pylnk
