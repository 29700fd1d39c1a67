#include "capi_table.h"


#include <cstdlib>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "buffer_object.h"
#include "element_format.h"
#include "strided_layout.h"

namespace vxbuffer {

namespace vd = foundation::veltradata;

namespace {

PyObject* object(python::pyArray* pointer) {
    return reinterpret_cast<PyObject*>(pointer);
}
python::pyArray* pyArray(PyObject* pointer) {
    return reinterpret_cast<python::pyArray*>(pointer);
}

void requireObject(python::pyArray* pointer) {
    if (pointer == nullptr) {
        raise(PyExc_SystemError, "libvxbuffer: null object pointer");
    }
}

// Format texts handed out by getFormat live until the process ends, whatever
// becomes of the buffer they came from. Only supported formats are kept: a
// small, bounded set.
const char* internFormat(const std::string& format) {
    static auto* mutex = new std::mutex;  // both never destroyed: see above
    static auto* formats = new std::set<std::string>;
    std::lock_guard lock(*mutex);
    return formats->insert(format).first->c_str();
}

// The host array type of a layout, or TypeError.
vd::ArrayType hostTypeOf(const Layout& layout) {
    if (!layout.format) {
        // No format means unsigned bytes.
        if (layout.itemSize != 1) {
            raise(PyExc_TypeError, "libvxbuffer: a buffer without format has items of " +
                                       std::to_string(layout.itemSize) + " bytes");
        }
        return vd::ArrayType::UINT8;
    }
    const std::optional<vd::ArrayType> type = typeOfFormat(*layout.format, layout.itemSize);
    if (!type) {
        raise(PyExc_TypeError, "libvxbuffer: the buffer format '" + *layout.format +
                                   "' (item size " + std::to_string(layout.itemSize) +
                                   ") has no host array type");
    }
    return *type;
}

// One copy of the elements, in column-major order. 0-d data becomes 1 by 1
// and n elements in one dimension an n by 1 column.
vd::Array copyToHostArray(const Layout& layout) {
    const vd::ArrayType type = hostTypeOf(layout);
    std::vector<std::size_t> dims;
    for (const std::ptrdiff_t extent : layout.shape) {
        dims.push_back(static_cast<std::size_t>(extent));
    }
    if (dims.size() < 2) {
        dims.resize(2, 1);
    }
    vd::standalone::ArrayFactory factory;
    const std::size_t count = layout.length / static_cast<Py_ssize_t>(layout.itemSize);
    std::size_t elements = 1;
    for (const std::size_t d : dims) {
        elements *= d;
    }
    if (elements == 0) {
        return factory.createArray(type, std::move(dims));
    }
    if (elements > count) {
        raise(PyExc_BufferError, "libvxbuffer: the exporter's shape exceeds its data");
    }
    // Every byte is written below: no need to clear the room first. A large
    // copy gets pages of its own (shareable ones where the process shares
    // large buffers with another).
    auto buffer = factory.createUninitialisedBuffer(type, elements);
    auto* out = static_cast<std::byte*>(buffer.get());
    copyToColumnMajor(layout.first, layout.shape, layout.strides, layout.itemSize, out);
    if (type == vd::ArrayType::LOGICAL) {
        // Any nonzero byte is true; a bool must hold exactly 0 or 1.
        for (std::size_t i = 0; i < elements; ++i) {
            out[i] = std::byte{out[i] != std::byte{0}};
        }
    }
    return factory.createArrayFromBuffer(std::move(dims), type, std::move(buffer),
                                         vd::MemoryLayout::COLUMN_MAJOR);
}

python::pyArray* makeFromArray(vd::Array array) {
    return guarded<python::pyArray*>(nullptr,
                                     [&] { return pyArray(newBufferOverArray(std::move(array))); });
}

python::pyArray* makeFromObject(python::pyArray* exporter) {
    return guarded<python::pyArray*>(nullptr, [&] {
        requireObject(exporter);
        return pyArray(newBufferOverObject(object(exporter)));
    });
}

unsigned char isBufferObject(python::pyArray* candidate) {
    return guarded<unsigned char>(0, [&]() -> unsigned char {
        requireObject(candidate);
        return asBuffer(object(candidate)) != nullptr;
    });
}

vd::Array getData(python::pyArray* buffer) {
    return guarded(vd::Array(), [&] {
        requireObject(buffer);
        return withLayout(object(buffer), [](const Layout& layout, const vd::Array* array) {
            return array != nullptr ? *array : copyToHostArray(layout);
        });
    });
}

unsigned char standsOnArray(python::pyArray* candidate) {
    return guarded<unsigned char>(0, [&]() -> unsigned char {
        requireObject(candidate);
        const BufferObject* buffer = asBuffer(object(candidate));
        return buffer != nullptr && buffer->state->array.has_value();
    });
}

int isColumnMajor(python::pyArray* buffer) {
    return guarded(-1, [&] {
        requireObject(buffer);
        return withLayout(object(buffer), [](const Layout& layout, const vd::Array* array) {
            return array != nullptr || layout.isColumnMajor() ? 1 : 0;
        });
    });
}

unsigned char typeSupported(python::pyArray* type) {
    return guarded<unsigned char>(0, [&]() -> unsigned char {
        requireObject(type);
        if (!PyType_Check(object(type))) {
            return 0;
        }
        const PyBufferProcs* procs = reinterpret_cast<PyTypeObject*>(type)->tp_as_buffer;
        return procs != nullptr && procs->bf_getbuffer != nullptr;
    });
}

unsigned char check(python::pyArray* candidate) {
    return guarded<unsigned char>(0, [&]() -> unsigned char {
        requireObject(candidate);
        return PyObject_CheckBuffer(object(candidate)) != 0;
    });
}

const char* getFormat(python::pyArray* buffer, int* status) {
    if (status != nullptr) {
        *status = 0;
    }
    return guarded<const char*>(nullptr, [&] {
        requireObject(buffer);
        return withLayout(object(buffer), [&](const Layout& layout, const vd::Array*) {
            int answer = 0;
            const char* text = nullptr;
            if (!layout.format) {
                answer = kFormatMissing;
            } else if (!typeOfFormat(*layout.format, layout.itemSize)) {
                answer = kFormatNotSupported;
            } else {
                text = internFormat(*layout.format);
            }
            if (status != nullptr) {
                *status = answer;
            }
            return text;
        });
    });
}

CApi table = {
    makeFromArray, makeFromObject, isBufferObject, getData,   standsOnArray,
    isColumnMajor, typeSupported,  check,          getFormat,
};

}  // namespace

CApi* capiTable() {
    return &table;
}

}  // namespace vxbuffer
