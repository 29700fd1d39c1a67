
#include "base/handler_support.h"
#include "buffer/buffer_bridge.h"

namespace pylnk {

namespace vd = foundation::veltradata;

VX_COMMAND(pyCreateBufferHandler, "pyCreateBuffer", 1) {
    reply(promise, objectAddress(createBufferFromObject(addressArg(prhs, 0))));
}

// The host array itself is the argument; the buffer object shares its storage.
VX_COMMAND(pyCreateMemoryViewHandler, "pyCreateMemoryView", 1) {
    reply(promise, objectAddress(createBufferFromArray(prhs[0])));
}

// getData hands back data in column-major order whatever the order of the
// object it stands on (C-ordered and strided data are reordered in the one
// copy it makes), so the answer here tells the host about the object, not
// about what pyBufferGetData will give.
VX_COMMAND(pyIsColumnMajorHandler, "pyIsColumnMajor", 1) {
    reply(promise, truthValue(bufferIsColumnMajor(addressArg(prhs, 0))));
}

VX_COMMAND(pyCheckBufferHandler, "pyCheckBuffer", 1) {
    reply(promise, truthValue(checkBuffer(addressArg(prhs, 0))));
}

VX_COMMAND(pyTypeSupportsBufferInterfaceHandler, "pyTypeSupportsBufferInterface", 2) {
    python::pyArray* pythonType = addressArg(prhs, 0);
    const std::string typeName = asciiArg(prhs, 1);
    reply(promise, truthValue(typeSupportsBufferInterface(pythonType, typeName.c_str())));
}

VX_COMMAND(pyBufferGetDataHandler, "pyBufferGetData", 1) {
    reply(promise, bufferGetData(addressArg(prhs, 0)));
}

VX_COMMAND(pyBufferGetFormatHandler, "pyBufferGetFormat", 1) {
    int status = 0;
    const char* format = bufferGetFormat(addressArg(prhs, 0), &status);
    if (format != nullptr) {
        reply(promise, text(std::string(format)));
    } else if (status == 1) {
        reply(promise, text(std::string("NO_FORMAT")));
    } else if (status == 2) {
        reply(promise, text(std::string("NOT_SUPPORTED")));
    } else {
        reply(promise, text(std::string()));
    }
}

// No data retrieval stands behind this name: the object is not looked at and
// the reply is an empty array.
VX_COMMAND(pyGetBufferDataInQLOrderHandler, "pyGetBufferDataInQLOrder", 0) {
    reply(promise, vd::ArrayFactory().createEmptyArray());
}

}  // namespace pylnk
