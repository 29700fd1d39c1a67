// The module libvxbuffer: the type Buffer and the capsule _capi.
#include "buffer_object.h"
#include "capi_table.h"

namespace {

PyModuleDef moduleDef = {
    PyModuleDef_HEAD_INIT,
    "libvxbuffer",
    "Host arrays and Python buffers, each shown in the other's form without copying.",
    -1,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    nullptr,
};

// Adds the object under the name; steals the reference, also on failure.
bool addObject(PyObject* module, const char* name, PyObject* value) {
    if (value == nullptr) {
        return false;
    }
    if (PyModule_AddObject(module, name, value) < 0) {
        Py_DECREF(value);
        return false;
    }
    return true;
}

}  // namespace

// Older interpreters' PyMODINIT_FUNC does not set visibility; the build hides
// everything else.
extern "C" __attribute__((visibility("default"))) PyObject* PyInit_libvxbuffer(void) {
    if (!vxbuffer::readyBufferType()) {
        return nullptr;
    }
    PyObject* module = PyModule_Create(&moduleDef);
    if (module == nullptr) {
        return nullptr;
    }
    PyObject* type = reinterpret_cast<PyObject*>(vxbuffer::bufferType());
    Py_INCREF(type);
    if (!addObject(module, "Buffer", type) ||
        !addObject(module, "_capi",
                   PyCapsule_New(vxbuffer::capiTable(), vxbuffer::kCapsuleNameAscii, nullptr))) {
        Py_DECREF(module);
        return nullptr;
    }
    return module;
}
