#include "support/arrays.h"

#include <complex>
#include <cstdint>
#include <cstring>

namespace vxtest {

namespace vd = foundation::veltradata;

namespace {

template <class T>
vd::Array counting(std::vector<std::size_t> dims) {
    vd::ArrayFactory f;
    vd::TypedArray<T> values = f.createArray<T>(std::move(dims));
    for (std::size_t k = 0; k < values.getNumberOfElements(); ++k) {
        if constexpr (std::is_same_v<T, bool>) {
            values[k] = k % 3 == 1;
        } else if constexpr (requires { typename T::value_type; }) {
            using Part = typename T::value_type;
            values[k] = T(static_cast<Part>(k + 1), static_cast<Part>(k % 5));
        } else {
            values[k] = static_cast<T>(k * 3 + 1);
        }
    }
    return values;
}

// One 2 by 2 array of each type, appended in the order given.
template <class... T>
void countingOf(std::vector<vd::Array>& out) {
    (out.push_back(counting<T>({2, 2})), ...);
}

}  // namespace

std::vector<vd::Array> everyKindOfArray() {
    vd::ArrayFactory f;
    vd::TypedArray<vd::VELTRAString> strings = f.createArray<vd::VELTRAString>({2, 2});
    strings[0] = std::u16string(u"present");
    strings[2] = std::u16string();                      // empty, not missing
    strings[3] = std::u16string(u"\u03c0 \U0001F600");  // element 1 stays missing

    vd::StructArray inner = f.createStructArray({1, 2}, {"x", "0", "a::b"});
    inner[0]["x"] = f.createScalar(1.0);
    inner[1]["x"] = strings;
    inner[1]["0"] = f.createCellArray({0, 3}, {});

    vd::Array deep = f.createCellArray(
        {2, 1}, {inner, f.createCellArray({1, 1}, {f.createStructArray({0, 0}, {"none"})})});

    vd::ValueObjectArray objects = f.createArray(vd::ArrayType::VALUE_OBJECT, {1, 2});
    objects[1] = vd::ValueObject(77);
    vd::TypedArray<vd::HandleObjectRef> handles = f.createArray<vd::HandleObjectRef>({1, 1});
    handles[0] = vd::HandleObjectRef(~std::uint64_t{0});
    vd::EnumArray enums = f.createArray(vd::ArrayType::ENUM, {1, 2});
    enums[0] = vd::Enumeration("red");

    std::vector<vd::Array> all = {deep,
                                  counting<bool>({3, 2}),
                                  f.createCharArray(u"char \u00e9\U0001F600"),
                                  f.createCharArray(std::string()),
                                  strings,
                                  counting<double>({2, 3, 4}),
                                  counting<float>({5, 1}),
                                  counting<std::int8_t>({1, 7})};
    countingOf<std::uint8_t, std::int16_t, std::uint16_t, std::int32_t, std::uint32_t, std::int64_t,
               std::uint64_t>(all);
    countingOf<std::complex<double>, std::complex<float>, std::complex<std::int8_t>,
               std::complex<std::uint8_t>, std::complex<std::int16_t>, std::complex<std::uint16_t>,
               std::complex<std::int32_t>, std::complex<std::uint32_t>, std::complex<std::int64_t>,
               std::complex<std::uint64_t>>(all);
    all.insert(all.end(), {f.createArray(vd::ArrayType::DOUBLE, {0, 0}),
                           f.createArray(vd::ArrayType::INT32, {3, 0, 2}),
                           f.createArray(vd::ArrayType::VELTRA_STRING, {0, 4}),
                           f.createArray(vd::ArrayType::LOGICAL, {1, 1, 1, 5}),
                           f.createArray(vd::ArrayType::SINGLE, {2, 1, 3, 1, 2}), objects, handles,
                           enums, f.createArray(vd::ArrayType::SPARSE_DOUBLE, {4, 5}),
                           f.createArray(vd::ArrayType::SPARSE_LOGICAL, {0, 2}),
                           f.createArray(vd::ArrayType::SPARSE_COMPLEX_DOUBLE, {1, 1}),
                           f.createOpaqueArray(0, {2, 3}), f.createOpaqueArray(26, {1, 1})});
    return all;
}

vd::Array nestedCells(unsigned depth) {
    vd::ArrayFactory f;
    vd::Array value = f.createScalar(static_cast<double>(depth));
    for (unsigned level = 1; level < depth; ++level) {
        value = f.createCellArray({1, 1}, {value});
    }
    return value;
}

bool sameArray(const vd::Array& a, const vd::Array& b) {
    if (a.getType() != b.getType() || a.getDimensions() != b.getDimensions()) {
        return false;
    }
    const std::size_t n = a.getNumberOfElements();
    if (a.getElementSize() != 0) {  // bytes, so that a NaN equals itself
        return n == 0 ||
               std::memcmp(a.getReadOnlyData(), b.getReadOnlyData(), n * a.getElementSize()) == 0;
    }
    const int code = static_cast<int>(a.getType());
    const bool hasElements = (code >= 3 && code <= 25) || (code >= 27 && code <= 29);
    if (!hasElements) {  // UNKNOWN, sparse and the rest: a shape only
        return true;
    }
    // Structs field by field; strings, cells and the object types element by element.
    return vd::visit(a, [&](const auto& x) {
        using View = std::decay_t<decltype(x)>;
        const View y(b);
        if constexpr (std::is_same_v<View, vd::StructArray>) {
            const std::vector<std::string> names(x.getFieldNames().begin(),
                                                 x.getFieldNames().end());
            if (names !=
                std::vector<std::string>(y.getFieldNames().begin(), y.getFieldNames().end())) {
                return false;
            }
            for (std::size_t k = 0; k < n; ++k) {
                for (const std::string& name : names) {
                    if (!sameArray(x[k][name], y[k][name])) {
                        return false;
                    }
                }
            }
            return true;
        } else if constexpr (std::is_same_v<decltype(*x.begin()), const vd::Array&>) {
            return std::equal(x.begin(), x.end(), y.begin(), sameArray);
        } else {
            return std::equal(x.begin(), x.end(), y.begin());
        }
    });
}

}  // namespace vxtest
