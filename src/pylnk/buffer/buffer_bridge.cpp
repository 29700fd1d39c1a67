#include "buffer/buffer_bridge.h"

namespace pylnk {

namespace vd = foundation::veltradata;
using pylnk_core::InternalPyException;
using pylnk_core::api::APIAccessor;

const vxbuffer::CApi* bufferApi() {
    APIAccessor access;
    void* table = access->importCapsule(vxbuffer::kCapsuleName);
    if (table == nullptr) {
        throw InternalPyException("Failed to get capsule.");
    }
    return static_cast<const vxbuffer::CApi*>(table);
}

H createBufferFromObject(python::pyArray* object) {
    APIAccessor access;
    python::pyArray* buffer = bufferApi()->makeFromObject(object);
    if (buffer == nullptr) {
        throw InternalPyException("Failed to construct buffer from python object.");
    }
    // The entry's new reference becomes the holder's.
    return H(buffer, pylnk_core::api::PyArrayReleaser());
}

H createBufferFromArray(vd::Array array) {
    APIAccessor access;
    python::pyArray* buffer = bufferApi()->makeFromArray(array);
    if (buffer == nullptr) {
        throw InternalPyException("Failed to construct buffer from kxArray.");
    }
    return H(buffer, pylnk_core::api::PyArrayReleaser());
}

vd::Array bufferGetData(python::pyArray* object) {
    APIAccessor access;
    return bufferApi()->getData(object);
}

const char* bufferGetFormat(python::pyArray* object, int* status) {
    APIAccessor access;
    return bufferApi()->getFormat(object, status);
}

bool bufferIsColumnMajor(python::pyArray* object) {
    APIAccessor access;
    return bufferApi()->isColumnMajor(object) > 0;
}

bool checkBuffer(python::pyArray* object) {
    H typeName = object::pyGetMember(object::pyGetClass(object).get(), "__name__");
    if (type::pyIsExcludedTypeForBuffer(object::pyGetChars(typeName.get()))) {
        return false;
    }
    APIAccessor access;
    return bufferApi()->check(object) != 0;
}

bool typeSupportsBufferInterface(python::pyArray* pythonType, const char* typeName) {
    if (type::pyIsExcludedTypeForBuffer(typeName)) {
        return false;
    }
    try {
        APIAccessor access;
        return bufferApi()->typeSupported(pythonType) != 0;
    } catch (const InternalPyException&) {
        exception::pyErrorClear();
        return false;
    }
}

}  // namespace pylnk
