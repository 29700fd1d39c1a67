#include "commands/invoke_handlers.h"

#include "from_python/object_result.h"
#include "service/handler_support.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// The call of pyInvoke and pyInvokeFast: callable, tuple and, unless only
// two arguments came, a keyword dict, all by address.
H invokeByAddress(size_t nrhs, vd::Array* prhs) {
    vd::TypedArray<std::uint64_t> callable(prhs[0]);
    vd::TypedArray<std::uint64_t> arguments(prhs[1]);
    python::pyArray* keywords = nrhs == 2 ? nullptr : addressArg(prhs, 2);
    return object::pyInvoke(addressArg(prhs, 0), addressArg(prhs, 1), keywords);
}

}  // namespace

VX_EXECUTE(pyInvokeHandler) {
    reply(promise, objectAddress(invokeByAddress(nrhs, prhs)));
}

VX_EXECUTE(pyInvokeFastHandler) {
    reply(promise, buildObjectResult(invokeByAddress(nrhs, prhs), classMetadataCache()));
}

namespace {

// int(object) read with one of the two 64-bit reads of the bridge. Any
// failure clears the Python error before it travels to the caller.
template <class Value>
Value invokeInt(vd::Array* prhs, void (*read)(python::pyArray*, Value*)) {
    vd::TypedArray<std::uint64_t> address(prhs[0]);
    try {
        auto result = module::pyInvokeInt(addressArg(prhs, 0));
        Value value = 0;
        read(result.get(), &value);
        return value;
    } catch (...) {
        exception::pyErrorClear();
        throw;
    }
}

}  // namespace

VX_EXECUTE(pyInvokeIntHandler) {
    reply(promise, int64Value(invokeInt<long long>(prhs, &primitive::pyLongGetData)));
}

VX_EXECUTE(pyInvokeUIntHandler) {
    reply(promise, uint64Value(invokeInt<unsigned long long>(prhs, &primitive::pyLongGetDataU)));
}

}  // namespace pylnk
