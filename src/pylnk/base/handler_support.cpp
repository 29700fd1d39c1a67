#include "base/handler_support.h"

#include "base/object_registry.h"

namespace pylnk {

namespace vd = foundation::veltradata;

python::pyArray* addressArg(vd::Array* prhs, size_t index) {
    return reinterpret_cast<python::pyArray*>(scalarArg<std::uint64_t>(prhs, index));
}

std::string asciiArg(vd::Array* prhs, size_t index) {
    return vd::CharArray(prhs[index]).toAscii();
}

std::u16string textArg(vd::Array* prhs, size_t index) {
    return vd::CharArray(prhs[index]).toUTF16();
}

boost::shared_ptr<python::pyArray> holderOf(python::pyArray* object) {
    managed::pyAddReference(object);
    // If the control block cannot be allocated, shared_ptr runs the deleter
    // before it throws, so the reference is not lost.
    return boost::shared_ptr<python::pyArray>(object, pylnk_core::api::PyArrayReleaser());
}

vd::Array objectAddress(boost::shared_ptr<python::pyArray> object) {
    return uint64Value(objectRegistryRetain(std::move(object)));
}

vd::Array truthValue(bool value) {
    return vd::ArrayFactory().createScalar(value);
}

vd::Array uint64Value(std::uint64_t value) {
    return vd::ArrayFactory().createScalar(value);
}

vd::Array int64Value(std::int64_t value) {
    return vd::ArrayFactory().createScalar(value);
}

vd::Array number(double value) {
    return vd::ArrayFactory().createScalar(value);
}

vd::Array text(const std::u16string& value) {
    return vd::ArrayFactory().createCharArray(value);
}

vd::Array text(const std::string& value) {
    return vd::ArrayFactory().createCharArray(value);
}

// The two success replies are built once: a reply is a copy that shares the
// elements (copy-on-write), which spares Release, Ping and their kind the
// building of the same array on every call. Never destroyed, like the queue.
vd::Array successString() {
    static const vd::Array* const success =
        new vd::Array(vd::ArrayFactory().createScalar("success"));
    return *success;
}

vd::Array successCharArray() {
    static const vd::Array* const success = new vd::Array(text(std::string("success")));
    return *success;
}

void reply(ReplyPromise* promise, vd::Array value) {
    Reply values;
    values.push_back(std::move(value));
    promise->set_value(std::move(values));
}

void replyWithFailure(ReplyPromise* promise, std::exception_ptr failure) {
    promise->set_exception(std::move(failure));
}

}  // namespace pylnk
