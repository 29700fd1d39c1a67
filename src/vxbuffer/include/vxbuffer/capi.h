// The table of C functions that the Python extension libvxbuffer publishes in
// its capsule "libvxbuffer._capi". A host array and a Python buffer are wrapped
// in each other's form through it without touching the elements.
//
// Every entry is called on a thread that holds the GIL. No C++ exception ever
// leaves an entry: a failure sets a Python error and the entry returns null,
// zero, an empty Array or a negative number, as stated for each.
#pragma once

#include <foundation/veltradata.h>

namespace python {
// A PyObject in disguise, so that users of the table need not include Python.h.
struct pyArray;
}  // namespace python

namespace vxbuffer {

inline constexpr const char16_t* kCapsuleName = u"libvxbuffer._capi";
inline constexpr const char* kCapsuleNameAscii = "libvxbuffer._capi";

// The answers of getFormat when it gives no text.
inline constexpr int kFormatMissing = 1;
inline constexpr int kFormatNotSupported = 2;

struct CApi {
    // 0. A read-only buffer object over the array's own storage: no copy, and
    // a copy of the handle keeps the storage alive while the object or any
    // view of it lives. LOGICAL, DOUBLE, SINGLE, INT8 to UINT64,
    // COMPLEX_DOUBLE and COMPLEX_SINGLE only; any other type (complex
    // integers, char, cell, ...) raises TypeError. New reference, or null.
    python::pyArray* (*makeFromArray)(foundation::veltradata::Array array);

    // 1. A read-only buffer object over the buffer of any exporter. The
    // exporter's buffer is held until the object is gone. Borrowed in, new
    // reference out, or null (TypeError when the object exports no buffer).
    python::pyArray* (*makeFromObject)(python::pyArray* object);

    // 2. 1 if the object is a buffer object of this extension, 0 if not.
    unsigned char (*isBufferObject)(python::pyArray* object);

    // 3. The data as a column-major host array: the held handle itself (no
    // copy) for an object made by makeFromArray, otherwise one copy of the
    // elements. Any buffer exporter is accepted. 0-d data gives 1 by 1, n
    // elements in one dimension give n by 1 (a column). A format without a
    // host type raises TypeError and gives an empty Array().
    foundation::veltradata::Array (*getData)(python::pyArray* object);

    // 4. 1 if the object is a buffer object made over a host array (getData
    // then copies nothing), 0 if not.
    unsigned char (*standsOnArray)(python::pyArray* object);

    // 5. 1 if the data lies in column-major order (0-d and contiguous 1-d
    // data count as both orders), 0 if not, -1 with a Python error when the
    // object exports no buffer.
    int (*isColumnMajor)(python::pyArray* object);

    // 6. Whether instances of the given type can export buffers. A non-type
    // argument answers 0 and sets no error.
    unsigned char (*typeSupported)(python::pyArray* type);

    // 7. Whether the object can export a buffer.
    unsigned char (*check)(python::pyArray* object);

    // 8. The format text of the object's buffer, valid until the process ends.
    // Null with *status set to kFormatMissing when the exporter gives none,
    // kFormatNotSupported when no host type matches it, and 0 with a Python
    // error when the object exports no buffer. status may be null.
    const char* (*getFormat)(python::pyArray* object, int* status);
};

static_assert(sizeof(CApi) == 9 * sizeof(void*), "the table is read by position");

}  // namespace vxbuffer
