
#include "base/handler_support.h"
#include "from_python/object_result.h"
#include "to_python/convert_to_python.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// The call of pyInvoke and pyInvokeFast: callable, tuple and, unless only
// two arguments came, a keyword dict, all by address.
pylnk_core::api::PyOwned invokeByAddress(size_t nrhs, vd::Array* prhs) {
    python::pyArray* callable = addressArg(prhs, 0);
    python::pyArray* arguments = addressArg(prhs, 1);
    python::pyArray* keywords = nrhs == 2 ? nullptr : addressArg(prhs, 2);
    return object::pyInvokeOwned(callable, arguments, keywords);
}

}  // namespace

VX_COMMAND(pyInvokeHandler, "pyInvoke", 2) {
    reply(promise, objectAddress(H(invokeByAddress(nrhs, prhs))));
}

VX_COMMAND(pyInvokeFastHandler, "pyInvokeFast", 2) {
    const pylnk_core::api::PyOwned result = invokeByAddress(nrhs, prhs);
    reply(promise, buildObjectResult(result.get(), classMetadataCache()));
}

VX_COMMAND(pyInvokeFastInputHandler, "pyInvokeFastInput", 2) {
    const HostCallInput input = readHostCallInput(prhs[1]);
    // A failed conversion is the whole reply, and nothing is called.
    std::vector<H> arguments;
    if (auto failure = convertPositionalValues(input.positional, arguments)) {
        reply(promise, std::move(*failure));
        return;
    }
    // The handler's holders keep the tuple and the dict alive through the
    // call; neither goes into the registry.
    H tuple = sequence::pyTupleCreate(arguments);
    std::vector<vd::Array> fastArguments = {
        prhs[0], uint64Value(reinterpret_cast<std::uint64_t>(tuple.get()))};
    H dict;
    if (!input.keywords.isEmpty()) {
        ConversionResult converted = convertKeywordArguments(input.keywords);
        if (!converted.object) {
            reply(promise, converted.failure);
            return;
        }
        dict = std::move(converted.object);
        fastArguments.push_back(uint64Value(reinterpret_cast<std::uint64_t>(dict.get())));
    }
    // The dict's extra reference goes back after the call, also when it raises.
    ExtraReference extra(dict.get());
    pyInvokeFastHandler fast;
    fast.execute(name, nlhs, promise, fastArguments.size(), fastArguments.data());
}

namespace {

// int(object) read with one of the two 64-bit reads of the bridge. Any
// failure clears the Python error before it travels to the caller.
template <class Value>
Value invokeInt(vd::Array* prhs, void (*read)(python::pyArray*, Value*)) {
    python::pyArray* callable = addressArg(prhs, 0);  // a wrong type leaves no error to clear
    try {
        auto result = module::pyInvokeInt(callable);
        Value value = 0;
        read(result.get(), &value);
        return value;
    } catch (...) {
        exception::pyErrorClear();
        throw;
    }
}

}  // namespace

VX_COMMAND(pyInvokeIntHandler, "pyInvokeInt", 1) {
    reply(promise, int64Value(invokeInt<long long>(prhs, &primitive::pyLongGetData)));
}

VX_COMMAND(pyInvokeUIntHandler, "pyInvokeUInt", 1) {
    reply(promise, uint64Value(invokeInt<unsigned long long>(prhs, &primitive::pyLongGetDataU)));
}

}  // namespace pylnk
