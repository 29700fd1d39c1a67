#include "buffer_object.h"

#include <limits>
#include <utility>

#include "element_format.h"
#include "strided_layout.h"

namespace vxbuffer {

namespace vd = foundation::veltradata;

namespace {

// Empty arrays have no storage; exporters still hand out a valid address.
alignas(16) const std::byte kNoElements[16] = {};

}  // namespace

Layout Layout::ofArray(const vd::Array& array) {
    const std::optional<ElementFormat> element = formatOfType(array.getType());
    if (!element) {
        raise(PyExc_TypeError, "libvxbuffer: host arrays of type " + vd::toString(array.getType()) +
                                   " have no buffer format");
    }
    if (array.getElementSize() != element->itemSize) {
        raise(PyExc_SystemError, "libvxbuffer: unexpected element size for host arrays of type " +
                                     vd::toString(array.getType()));
    }
    const std::vector<std::size_t> dims = array.getDimensions();
    if (dims.size() > PyBUF_MAX_NDIM) {
        raise(PyExc_ValueError, "libvxbuffer: a host array of " + std::to_string(dims.size()) +
                                    " dimensions exceeds the buffer protocol's limit of " +
                                    std::to_string(PyBUF_MAX_NDIM));
    }
    Layout layout;
    layout.itemSize = element->itemSize;
    layout.format = element->format;
    constexpr auto kMax = static_cast<std::size_t>(std::numeric_limits<Py_ssize_t>::max());
    const std::size_t count = array.getNumberOfElements();
    if (count > kMax / layout.itemSize) {
        raise(PyExc_OverflowError, "libvxbuffer: host array too large for a buffer");
    }
    for (const std::size_t d : dims) {
        if (d > kMax) {
            raise(PyExc_OverflowError, "libvxbuffer: host array dimension too large for a buffer");
        }
        layout.shape.push_back(static_cast<std::ptrdiff_t>(d));
    }
    // With no elements the strides are never used; dense ones could overflow.
    layout.strides = count == 0 ? std::vector<std::ptrdiff_t>(
                                      dims.size(), static_cast<std::ptrdiff_t>(layout.itemSize))
                                : denseStrides(layout.shape, layout.itemSize, 'F');
    layout.length = static_cast<Py_ssize_t>(count * layout.itemSize);
    const void* data = array.getReadOnlyData();
    layout.first = data != nullptr ? static_cast<const std::byte*>(data) : kNoElements;
    return layout;
}

Layout Layout::ofView(const Py_buffer& view) {
    if (view.suboffsets != nullptr) {
        raise(PyExc_BufferError, "libvxbuffer: indirect buffers (suboffsets) are not supported");
    }
    if (view.itemsize <= 0 || view.ndim < 0) {
        raise(PyExc_BufferError, "libvxbuffer: the exporter described its buffer inconsistently");
    }
    Layout layout;
    layout.first = static_cast<const std::byte*>(view.buf);
    layout.itemSize = static_cast<std::size_t>(view.itemsize);
    if (view.format != nullptr) {
        layout.format = view.format;
    }
    layout.length = view.len;
    if (view.shape != nullptr) {
        layout.shape.assign(view.shape, view.shape + view.ndim);
    } else if (view.ndim != 0) {
        // No shape: a 1-d run of items.
        layout.shape = {view.len / view.itemsize};
    }
    if (view.strides != nullptr && view.shape != nullptr) {
        layout.strides.assign(view.strides, view.strides + view.ndim);
    } else {
        layout.strides = denseStrides(layout.shape, layout.itemSize, 'C');
    }
    if (layout.first == nullptr) {
        layout.first = kNoElements;
    }
    return layout;
}

bool Layout::isColumnMajor() const {
    return isContiguous(shape, strides, itemSize, 'F');
}
bool Layout::isRowMajor() const {
    return isContiguous(shape, strides, itemSize, 'C');
}

namespace {

BufferObject* self(PyObject* object) noexcept {
    return reinterpret_cast<BufferObject*>(object);
}

PyObject* wrap(std::unique_ptr<BufferState> state) {
    BufferObject* object = PyObject_New(BufferObject, bufferType());
    if (object == nullptr) {
        throw PythonErrorSet{};
    }
    object->state = state.release();
    return reinterpret_cast<PyObject*>(object);
}

void bufferDealloc(PyObject* object) {
    // Drops the host array handle or releases the exporter's buffer.
    delete self(object)->state;
    PyObject_Free(object);
}

// Read-only export of the held layout, within the limits that the request sets.
int bufferGetBuffer(PyObject* object, Py_buffer* view, int flags) {
    view->obj = nullptr;
    return guarded(-1, [&] {
        const Layout& layout = self(object)->state->layout;
        if ((flags & PyBUF_WRITABLE) == PyBUF_WRITABLE) {
            raise(PyExc_BufferError,
                  "libvxbuffer.Buffer is read-only: its data is shared and may not be written");
        }
        const bool columnMajor = layout.isColumnMajor();
        const bool rowMajor = layout.isRowMajor();
        if ((flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS && !rowMajor) {
            raise(PyExc_BufferError, "libvxbuffer.Buffer is not C-contiguous");
        }
        if ((flags & PyBUF_F_CONTIGUOUS) == PyBUF_F_CONTIGUOUS && !columnMajor) {
            raise(PyExc_BufferError, "libvxbuffer.Buffer is not Fortran-contiguous");
        }
        if ((flags & PyBUF_ANY_CONTIGUOUS) == PyBUF_ANY_CONTIGUOUS && !columnMajor && !rowMajor) {
            raise(PyExc_BufferError, "libvxbuffer.Buffer is not contiguous");
        }
        // Without strides the consumer assumes row-major order.
        if ((flags & PyBUF_STRIDES) != PyBUF_STRIDES && !rowMajor) {
            raise(PyExc_BufferError,
                  "libvxbuffer.Buffer is not C-contiguous: request it with strides");
        }
        view->buf = const_cast<std::byte*>(layout.first);
        view->len = layout.length;
        view->itemsize = static_cast<Py_ssize_t>(layout.itemSize);
        view->readonly = 1;
        view->format = (flags & PyBUF_FORMAT) == PyBUF_FORMAT && layout.format
                           ? const_cast<char*>(layout.format->c_str())
                           : nullptr;
        if ((flags & PyBUF_ND) == PyBUF_ND) {
            view->ndim = static_cast<int>(layout.shape.size());
            view->shape = const_cast<Py_ssize_t*>(layout.shape.data());
        } else {
            view->ndim = 1;
            view->shape = nullptr;
        }
        view->strides = (flags & PyBUF_STRIDES) == PyBUF_STRIDES
                            ? const_cast<Py_ssize_t*>(layout.strides.data())
                            : nullptr;
        view->suboffsets = nullptr;
        view->internal = nullptr;
        Py_INCREF(object);
        view->obj = object;
        return 0;
    });
}

PyObject* bufferNew(PyTypeObject*, PyObject* args, PyObject* kwargs) {
    return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        PyObject* exporter = nullptr;
        if (kwargs != nullptr && PyDict_Size(kwargs) != 0) {
            raise(PyExc_TypeError, "Buffer() takes no keyword arguments");
        }
        if (!PyArg_UnpackTuple(args, "Buffer", 1, 1, &exporter)) {
            throw PythonErrorSet{};
        }
        return newBufferOverObject(exporter);
    });
}

PyObject* shapeTuple(const Layout& layout) {
    PyObject* tuple = PyTuple_New(static_cast<Py_ssize_t>(layout.shape.size()));
    if (tuple == nullptr) {
        throw PythonErrorSet{};
    }
    for (std::size_t i = 0; i < layout.shape.size(); ++i) {
        PyObject* extent = PyLong_FromSsize_t(layout.shape[i]);
        if (extent == nullptr) {
            Py_DECREF(tuple);
            throw PythonErrorSet{};
        }
        PyTuple_SET_ITEM(tuple, static_cast<Py_ssize_t>(i), extent);
    }
    return tuple;
}

PyObject* bufferRepr(PyObject* object) {
    return guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        const BufferState& state = *self(object)->state;
        PyObject* shape = shapeTuple(state.layout);
        const char* over = "a host array";
        if (state.source) {
            PyObject* exporter = state.source->view().obj;
            over = exporter != nullptr ? Py_TYPE(exporter)->tp_name : "a buffer";
        }
        PyObject* text = PyUnicode_FromFormat(
            "<libvxbuffer.Buffer format='%s' shape=%R over %s>",
            state.layout.format ? state.layout.format->c_str() : "", shape, over);
        Py_DECREF(shape);
        return text;
    });
}

Py_ssize_t bufferLength(PyObject* object) {
    return guarded<Py_ssize_t>(-1, [&] {
        const Layout& layout = self(object)->state->layout;
        if (layout.shape.empty()) {
            raise(PyExc_TypeError, "len() of a 0-d buffer");
        }
        return layout.shape[0];
    });
}

PyObject* getShape(PyObject* object, void*) {
    return guarded<PyObject*>(nullptr, [&] { return shapeTuple(self(object)->state->layout); });
}

PyObject* getFormat(PyObject* object, void*) {
    const Layout& layout = self(object)->state->layout;
    if (!layout.format) {
        Py_RETURN_NONE;
    }
    return PyUnicode_FromString(layout.format->c_str());
}

PyObject* getItemSize(PyObject* object, void*) {
    return PyLong_FromSize_t(self(object)->state->layout.itemSize);
}

PyObject* getReadOnly(PyObject*, void*) {
    Py_RETURN_TRUE;
}

PyObject* getOnHostArray(PyObject* object, void*) {
    return PyBool_FromLong(self(object)->state->array.has_value());
}

PyGetSetDef bufferGetSet[] = {
    {"shape", getShape, nullptr, "Extent of each dimension.", nullptr},
    {"format", getFormat, nullptr, "Element format, or None when the exporter gave none.", nullptr},
    {"itemsize", getItemSize, nullptr, "Bytes per element.", nullptr},
    {"readonly", getReadOnly, nullptr, "Always True: the data is shared.", nullptr},
    {"on_host_array", getOnHostArray, nullptr, "True when the data is a host array's storage.",
     nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyBufferProcs bufferProcs = {bufferGetBuffer, nullptr};

PySequenceMethods bufferSequence = {
    bufferLength, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
PyTypeObject bufferTypeObject = {PyVarObject_HEAD_INIT(nullptr, 0)};
#pragma GCC diagnostic pop

}  // namespace

bool readyBufferType() {
    PyTypeObject& type = bufferTypeObject;
    type.tp_name = "libvxbuffer.Buffer";
    type.tp_doc =
        "Buffer(object)\n\nA read-only view of the buffer of `object`, or of a host array's "
        "storage. It holds the data alive as long as it or any view of it lives.";
    type.tp_basicsize = sizeof(BufferObject);
    type.tp_flags = Py_TPFLAGS_DEFAULT;
    type.tp_dealloc = bufferDealloc;
    type.tp_repr = bufferRepr;
    type.tp_as_sequence = &bufferSequence;
    type.tp_as_buffer = &bufferProcs;
    type.tp_getset = bufferGetSet;
    type.tp_new = bufferNew;
    return PyType_Ready(&type) == 0;
}

PyTypeObject* bufferType() {
    return &bufferTypeObject;
}

BufferObject* asBuffer(PyObject* object) noexcept {
    return Py_TYPE(object) == &bufferTypeObject ? self(object) : nullptr;
}

PyObject* newBufferOverArray(vd::Array array) {
    auto state = std::make_unique<BufferState>();
    state->layout = Layout::ofArray(array);
    state->array = std::move(array);
    return wrap(std::move(state));
}

PyObject* newBufferOverObject(PyObject* exporter) {
    // A second buffer object over the same host array keeps getData free of copies.
    if (BufferObject* buffer = asBuffer(exporter); buffer != nullptr && buffer->state->array) {
        return newBufferOverArray(*buffer->state->array);
    }
    auto state = std::make_unique<BufferState>();
    state->source = std::make_unique<HeldBuffer>(exporter);
    state->layout = Layout::ofView(state->source->view());
    return wrap(std::move(state));
}

}  // namespace vxbuffer
