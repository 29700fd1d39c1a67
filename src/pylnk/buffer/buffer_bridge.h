// The thin layer over the capsule table of libvxbuffer: host arrays and
// Python buffers wrapped in each other's form without touching elements.
// The capsule is imported anew on every call (a lookup of an imported
// module), and each call past the bridge runs under an api::APIAccessor.
#pragma once

#include <vxbuffer/capi.h>

#include "contracts/host_array.h"
#include "contracts/python_bridge.h"

namespace pylnk {

const vxbuffer::CApi* bufferApi();

boost::shared_ptr<python::pyArray> createBufferFromObject(python::pyArray* object);
boost::shared_ptr<python::pyArray> createBufferFromArray(foundation::veltradata::Array array);
foundation::veltradata::Array bufferGetData(python::pyArray* object);
const char* bufferGetFormat(python::pyArray* object, int* status);
bool bufferIsColumnMajor(python::pyArray* object);
bool checkBuffer(python::pyArray* object);
// Answers false, with no Python error left, when the extension cannot be
// asked: class metadata is built without it.
bool typeSupportsBufferInterface(python::pyArray* type, const char* typeName);

}  // namespace pylnk
