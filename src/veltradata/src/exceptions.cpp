#include "foundation/veltradata/exceptions.h"

namespace foundation::veltradata {

Exception::~Exception() = default;

EArrayUnknownDataType::EArrayUnknownDataType(std::string kind)
    : kind_(std::make_shared<const std::string>(std::move(kind))) {}
EArrayUnknownDataType::~EArrayUnknownDataType() = default;
const char* EArrayUnknownDataType::what() const noexcept {
    return "Unknown DataType field in veltra::data::Array.";
}
int EArrayUnknownDataType::getTypeCode() const noexcept {
    return TypeCode;
}
std::string EArrayUnknownDataType::getKind() const {
    return *kind_;
}

NonAsciiCharInInputDataException::~NonAsciiCharInInputDataException() = default;
const char* NonAsciiCharInInputDataException::what() const noexcept {
    return "Input data can only contain ASCII characters.";
}
int NonAsciiCharInInputDataException::getTypeCode() const noexcept {
    return TypeCode;
}

ArrayException::ArrayException(const std::string& message)
    : message_(std::make_shared<const std::string>(message)) {}
ArrayException::~ArrayException() = default;
const char* ArrayException::what() const noexcept {
    return message_->c_str();
}

#define VX_VELTRADATA_DEFINE_EXCEPTION(Name)                            \
    Name::Name(const std::string& message) : ArrayException(message) {} \
    Name::~Name() = default;                                            \
    int Name::getTypeCode() const noexcept {                            \
        return TypeCode;                                                \
    }

VX_VELTRADATA_DEFINE_EXCEPTION(InvalidArrayTypeException)
VX_VELTRADATA_DEFINE_EXCEPTION(IndexOutOfBoundsException)
VX_VELTRADATA_DEFINE_EXCEPTION(InvalidFieldNameException)
VX_VELTRADATA_DEFINE_EXCEPTION(InvalidDimensionsException)
VX_VELTRADATA_DEFINE_EXCEPTION(InvalidBufferException)
VX_VELTRADATA_DEFINE_EXCEPTION(MissingStringException)
VX_VELTRADATA_DEFINE_EXCEPTION(InvalidTextException)
VX_VELTRADATA_DEFINE_EXCEPTION(InvalidArgumentException)

#undef VX_VELTRADATA_DEFINE_EXCEPTION

}  // namespace foundation::veltradata
