// Every failure of the library is raised as a class derived from Exception.
#pragma once

#include <exception>
#include <memory>
#include <string>

namespace foundation::veltradata {

class Exception : public std::exception {
  public:
    ~Exception() override;
    const char* what() const noexcept override = 0;
    // A number per exception class; see each class for its value.
    virtual int getTypeCode() const noexcept = 0;
};

// Raised by visit() for types without a typed view. The kind is
// "SparseLogical", "SparseDouble", "SparseComplexDouble", or empty for a type
// value the library does not know (26, 0, above 32, ...). what() does not show it.
class EArrayUnknownDataType : public Exception {
  public:
    static constexpr int TypeCode = 8;
    explicit EArrayUnknownDataType(std::string kind = {});
    ~EArrayUnknownDataType() override;
    const char* what() const noexcept override;  // "Unknown DataType field in veltra::data::Array."
    int getTypeCode() const noexcept override;
    std::string getKind() const;

  private:
    std::shared_ptr<const std::string> kind_;  // shared so that copying cannot throw
};

// Raised when text that must be ASCII holds a byte of 128 or above.
class NonAsciiCharInInputDataException : public Exception {
  public:
    static constexpr int TypeCode = 15;
    NonAsciiCharInInputDataException() = default;
    ~NonAsciiCharInInputDataException() override;
    const char* what() const noexcept override;  // "Input data can only contain ASCII characters."
    int getTypeCode() const noexcept override;
};

// Base of the library's other failures: a fixed message chosen where it is raised.
class ArrayException : public Exception {
  public:
    explicit ArrayException(const std::string& message);
    ~ArrayException() override;
    const char* what() const noexcept override;

  private:
    std::shared_ptr<const std::string> message_;
};

#define VX_VELTRADATA_DECLARE_EXCEPTION(Name, Code) \
    class Name : public ArrayException {            \
      public:                                       \
        static constexpr int TypeCode = Code;       \
        explicit Name(const std::string& message);  \
        ~Name() override;                           \
        int getTypeCode() const noexcept override;  \
    }

// A typed view of an array of another type, or element access on an array
// that has no element storage (sparse and unknown types).
VX_VELTRADATA_DECLARE_EXCEPTION(InvalidArrayTypeException, 101);
// An index (or one of several subscripts) past the end.
VX_VELTRADATA_DECLARE_EXCEPTION(IndexOutOfBoundsException, 102);
// A struct field name that the struct array does not have, or a duplicate
// name given to createStructArray.
VX_VELTRADATA_DECLARE_EXCEPTION(InvalidFieldNameException, 103);
// A dimension list that is empty or overflows, or an element count that does
// not match the dimensions (cells, ranges).
VX_VELTRADATA_DECLARE_EXCEPTION(InvalidDimensionsException, 104);
// A buffer of the wrong size or type, a null buffer, or a foreign buffer for
// an element type that only accepts the library's own buffers.
VX_VELTRADATA_DECLARE_EXCEPTION(InvalidBufferException, 105);
// A missing string element read as text.
VX_VELTRADATA_DECLARE_EXCEPTION(MissingStringException, 106);
// Narrow text that is not valid UTF-8.
VX_VELTRADATA_DECLARE_EXCEPTION(InvalidTextException, 107);
// An ArrayType value that the operation cannot make (UNKNOWN, 26, ...).
VX_VELTRADATA_DECLARE_EXCEPTION(InvalidArgumentException, 108);

#undef VX_VELTRADATA_DECLARE_EXCEPTION

}  // namespace foundation::veltradata
