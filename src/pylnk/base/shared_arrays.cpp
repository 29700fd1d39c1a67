#include "base/shared_arrays.h"

namespace pylnk {

namespace vd = foundation::veltradata;

// Each made on first use and never destroyed: replies holding them may be
// read on any thread until the process ends.
const vd::Array& sharedLogical(bool value) {
    static const auto* truth = new vd::Array(vd::ArrayFactory().createScalar(true));
    static const auto* falsehood = new vd::Array(vd::ArrayFactory().createScalar(false));
    return value ? *truth : *falsehood;
}

const vd::Array& sharedZeroCount() {
    static const auto* zero = new vd::Array(vd::ArrayFactory().createScalar(std::uint64_t{0}));
    return *zero;
}

const vd::Array& sharedEmptyText() {
    static const auto* empty = new vd::Array(vd::ArrayFactory().createCharArray(std::u16string()));
    return *empty;
}

const vd::Array& sharedEmptyCells() {
    static const auto* empty = new vd::Array(vd::ArrayFactory().createCellArray({1, 0}, {}));
    return *empty;
}

const vd::Array& sharedUnknownNames() {
    static const auto* names =
        new vd::Array(vd::ArrayFactory().createArray(vd::ArrayType::VELTRA_STRING, {1, 1}));
    return *names;
}

}  // namespace pylnk
