// libvxbuffer.Buffer: a read-only buffer exporter that stands either on a host
// array's own storage or on another exporter's buffer.
#pragma once

#include "python_support.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <foundation/veltradata.h>

namespace vxbuffer {

// Where the elements lie and how to read them.
struct Layout {
    const std::byte* first = nullptr;  // element 0
    std::size_t itemSize = 1;
    std::optional<std::string> format;  // nullopt: the exporter gave none
    std::vector<std::ptrdiff_t> shape;
    std::vector<std::ptrdiff_t> strides;
    Py_ssize_t length = 0;  // bytes

    // Raises TypeError for an array type without a buffer format.
    static Layout ofArray(const foundation::veltradata::Array& array);
    // Raises BufferError for a buffer the extension cannot describe.
    static Layout ofView(const Py_buffer& view);

    bool isColumnMajor() const;
    bool isRowMajor() const;
};

struct BufferState {
    std::optional<foundation::veltradata::Array> array;  // set when over a host array
    std::unique_ptr<HeldBuffer> source;                  // set when over an exporter
    Layout layout;
};

struct BufferObject {
    PyObject_HEAD BufferState* state;
};

// Readies the type; false with a Python error on failure.
bool readyBufferType();
PyTypeObject* bufferType();

// The object as a buffer object of this extension, or nullptr.
BufferObject* asBuffer(PyObject* object) noexcept;

// New references. They throw PythonErrorSet.
PyObject* newBufferOverArray(foundation::veltradata::Array array);
PyObject* newBufferOverObject(PyObject* exporter);

// Runs body(layout, array) on the object's layout, with the held host array
// (nullptr unless the object is a buffer object over one). Any other exporter
// lends its buffer for the length of the call.
template <class Body>
auto withLayout(PyObject* object, Body&& body) {
    if (BufferObject* buffer = asBuffer(object)) {
        const BufferState& state = *buffer->state;
        return body(state.layout, state.array ? &*state.array : nullptr);
    }
    HeldBuffer held(object);
    const Layout layout = Layout::ofView(held.view());
    return body(layout, static_cast<const foundation::veltradata::Array*>(nullptr));
}

}  // namespace vxbuffer
