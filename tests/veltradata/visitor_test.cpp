// The one dispatch over ArrayType, the typed-view refusals and the exceptions.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <type_traits>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;

// Which view the visitor reached; "mismatch" when the view's element type is
// not the one of the array's type.
struct ViewName {
    template <class View>
    std::string operator()(const View& view) const {
        static_assert(std::is_base_of_v<Array, View>);
        if (arrayTypeOf<typename View::element_type> != view.getType()) {
            return "mismatch";
        }
        if constexpr (std::is_same_v<View, CharArray>) {
            return "CharArray";
        } else if constexpr (std::is_same_v<View, StructArray>) {
            return "StructArray";
        } else if constexpr (std::is_same_v<View, EnumArray>) {
            return "EnumArray";
        } else if constexpr (std::is_same_v<View, ValueObjectArray>) {
            return "ValueObjectArray";
        }
        return "TypedArray";
    }
};

TEST(VisitTest, EveryTypeWithAViewReachesTheTypedViewOfItsType) {
    const std::map<ArrayType, std::string> ownViews = {
        {ArrayType::CHAR, "CharArray"},
        {ArrayType::STRUCT, "StructArray"},
        {ArrayType::ENUM, "EnumArray"},
        {ArrayType::VALUE_OBJECT, "ValueObjectArray"}};
    ArrayFactory factory;
    for (int code = 1; code <= 29; ++code) {
        const auto type = static_cast<ArrayType>(code);
        if (code == 26) {
            continue;  // no type has this code
        }
        SCOPED_TRACE(toString(type));
        Array array = factory.createArray(type, {2, 2});
        EXPECT_EQ(array.getType(), type);
        EXPECT_EQ(visit(array, ViewName{}),
                  ownViews.contains(type) ? ownViews.at(type) : "TypedArray");
    }
}

// Types without a view, opaque or sparse, are refused by kind with the
// fixed message, and give no element access either.
TEST(VisitTest, TypesWithoutAViewAreRefusedByKind) {
    ArrayFactory factory;
    const std::tuple<Array, int, const char*> refused[] = {
        {factory.createOpaqueArray(30, {1, 1}), 30, "SparseLogical"},
        {factory.createOpaqueArray(31, {1, 1}), 31, "SparseDouble"},
        {factory.createOpaqueArray(32, {1, 1}), 32, "SparseComplexDouble"},
        {factory.createArray(ArrayType::SPARSE_COMPLEX_DOUBLE, {3, 4}), 32, "SparseComplexDouble"},
        {factory.createOpaqueArray(26, {1, 1}), 26, ""},
        {factory.createOpaqueArray(0, {1, 1}), 0, ""},
        {factory.createOpaqueArray(33, {1, 1}), 33, ""},
        {factory.createOpaqueArray(-1, {1, 1}), -1, ""},
        {factory.createOpaqueArray(1000, {1, 1}), 1000, ""},
    };
    for (const auto& [array, code, kind] : refused) {
        SCOPED_TRACE(code);
        EXPECT_EQ(static_cast<int>(array.getType()), code);
        try {
            visit(array, [](const auto&) { return 0; });
            ADD_FAILURE() << "no exception";
        } catch (const EArrayUnknownDataType& e) {
            EXPECT_EQ(e.getKind(), kind);
            EXPECT_STREQ(e.what(), "Unknown DataType field in veltra::data::Array.");
        }
        EXPECT_THROW(array[0].operator double(), InvalidArrayTypeException);
    }
    EXPECT_THROW(factory.createArray(ArrayType::UNKNOWN, {1, 1}), InvalidArgumentException);
    EXPECT_THROW(factory.createArray(static_cast<ArrayType>(26), {1, 1}), InvalidArgumentException);
    EXPECT_THROW(factory.createOpaqueArray(4, {1, 1}), InvalidArgumentException);
}

TEST(TypedViewTest, RefusalNamesBothTypesAndLeavesTheSourceAlone) {
    ArrayFactory factory;
    Array chars = factory.createCharArray("abc");
    try {
        TypedArray<double> wrong(chars);
        FAIL() << "no exception";
    } catch (const Exception& e) {
        const std::string message = e.what();
        EXPECT_NE(message.find("CHAR"), std::string::npos) << message;
        EXPECT_NE(message.find("DOUBLE"), std::string::npos) << message;
    }
    EXPECT_THROW(StructArray{std::move(chars)}, InvalidArrayTypeException);
    EXPECT_EQ(chars.getNumberOfElements(), 3u);  // the refused move took nothing
    EXPECT_THROW(CharArray(factory.createScalar(1.0)), InvalidArrayTypeException);
    EXPECT_THROW(EnumArray{Array()}, InvalidArrayTypeException);
    EXPECT_THROW(TypedArray<std::int64_t>(factory.createScalar(std::uint64_t{1})),
                 InvalidArrayTypeException);
    EXPECT_THROW(TypedArray<double>(factory.createOpaqueArray(33, {1, 1})),
                 InvalidArrayTypeException);

    // A view reassigned through its base keeps refusing element access.
    TypedArray<double> view = factory.createScalar(2.0);
    static_cast<Array&>(view) = factory.createCharArray("x");
    EXPECT_THROW(view.begin(), InvalidArrayTypeException);
    EXPECT_THROW(view[0].operator double(), InvalidArrayTypeException);
}

}  // namespace
