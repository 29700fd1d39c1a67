// Python errors and C++ exceptions: inside the extension code throws; at every
// door into it (table entry, type slot, module init) guarded() turns the
// exception into a Python error and a failure value.
#pragma once

#define PY_SSIZE_T_CLEAN
#include <Python.h>

#include <cstddef>
#include <new>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace vxbuffer {

static_assert(std::is_same_v<Py_ssize_t, std::ptrdiff_t>, "shapes are shared as ptrdiff_t");

// Thrown once the Python error that explains it is set.
struct PythonErrorSet {};

[[noreturn]] inline void raise(PyObject* type, const std::string& message) {
    PyErr_SetString(type, message.c_str());
    throw PythonErrorSet{};
}

template <class R, class Body>
R guarded(R failure, Body&& body) noexcept {
    try {
        return body();
    } catch (const PythonErrorSet&) {
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& e) {
        PyErr_SetString(PyExc_RuntimeError, e.what());
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "libvxbuffer: unexpected C++ exception");
    }
    return failure;
}

// A Py_buffer taken from an exporter (strides and format requested, read
// only) and released when this ends.
class HeldBuffer {
  public:
    explicit HeldBuffer(PyObject* exporter) {
        if (PyObject_GetBuffer(exporter, &view_, PyBUF_RECORDS_RO) < 0) {
            throw PythonErrorSet{};
        }
    }
    ~HeldBuffer() { PyBuffer_Release(&view_); }
    HeldBuffer(const HeldBuffer&) = delete;
    HeldBuffer& operator=(const HeldBuffer&) = delete;

    const Py_buffer& view() const noexcept { return view_; }

  private:
    Py_buffer view_{};
};

}  // namespace vxbuffer
