// The one dispatch over ArrayType, the typed-view refusals and the exceptions.
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "foundation/veltradata.h"

namespace {

using namespace foundation::veltradata;

// Which view the visitor reached, by the type that the view reports.
struct ViewName {
    template <class View>
    std::string operator()(const View& view) const {
        static_assert(std::is_base_of_v<Array, View>);
        std::string prefix;
        if constexpr (std::is_same_v<View, CharArray>) {
            prefix = "CharArray:";
        } else if constexpr (std::is_same_v<View, StructArray>) {
            prefix = "StructArray:";
        } else if constexpr (std::is_same_v<View, EnumArray>) {
            prefix = "EnumArray:";
        } else if constexpr (std::is_same_v<View, ValueObjectArray>) {
            prefix = "ValueObjectArray:";
        } else {
            prefix = "TypedArray:";
        }
        // The view's own element type must be the one of the array's type.
        if (arrayTypeOf<typename View::element_type> != view.getType()) {
            return "mismatch";
        }
        return prefix + toString(view.getType());
    }
};

class VisitEveryType : public ::testing::TestWithParam<int> {};

TEST_P(VisitEveryType, ReachesTheTypedViewOfItsType) {
    const auto type = static_cast<ArrayType>(GetParam());
    ArrayFactory factory;
    Array array = factory.createArray(type, {2, 2});
    EXPECT_EQ(array.getType(), type);
    EXPECT_EQ(array.getNumberOfElements(), 4u);
    std::string expected = "TypedArray:";
    if (type == ArrayType::CHAR) {
        expected = "CharArray:";
    } else if (type == ArrayType::STRUCT) {
        expected = "StructArray:";
    } else if (type == ArrayType::ENUM) {
        expected = "EnumArray:";
    } else if (type == ArrayType::VALUE_OBJECT) {
        expected = "ValueObjectArray:";
    }
    EXPECT_EQ(visit(array, ViewName{}), expected + toString(type));
}

INSTANTIATE_TEST_SUITE_P(TypesWithViews, VisitEveryType,
                         ::testing::Values(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16,
                                           17, 18, 19, 20, 21, 22, 23, 24, 25, 27, 28, 29));

struct Refusal {
    int type;
    const char* kind;
};

class VisitRefuses : public ::testing::TestWithParam<Refusal> {};

TEST_P(VisitRefuses, WithTheKindAndTheFixedMessage) {
    ArrayFactory factory;
    const Refusal refusal = GetParam();
    Array array = factory.createOpaqueArray(refusal.type, {1, 1});
    EXPECT_EQ(static_cast<int>(array.getType()), refusal.type);
    try {
        visit(array, [](const auto&) { return 0; });
        FAIL() << "no exception";
    } catch (const EArrayUnknownDataType& e) {
        EXPECT_EQ(e.getKind(), refusal.kind);
        EXPECT_STREQ(e.what(), "Unknown DataType field in veltra::data::Array.");
        EXPECT_EQ(e.getTypeCode(), 8);
        const Exception& base = e;  // reachable through the base class
        EXPECT_EQ(base.getTypeCode(), 8);
    }
    // No element access either.
    EXPECT_THROW(array[0].operator double(), InvalidArrayTypeException);
}

INSTANTIATE_TEST_SUITE_P(TypesWithoutViews, VisitRefuses,
                         ::testing::Values(Refusal{30, "SparseLogical"},
                                           Refusal{31, "SparseDouble"},
                                           Refusal{32, "SparseComplexDouble"}, Refusal{26, ""},
                                           Refusal{0, ""}, Refusal{33, ""}, Refusal{-1, ""},
                                           Refusal{1000, ""}));

TEST(VisitTest, SparseArraysFromCreateArrayAreRefusedByName) {
    ArrayFactory factory;
    Array sparse = factory.createArray(ArrayType::SPARSE_COMPLEX_DOUBLE, {3, 4});
    EXPECT_EQ(sparse.getNumberOfElements(), 12u);
    try {
        visit(sparse, [](const auto&) {});
        FAIL() << "no exception";
    } catch (const EArrayUnknownDataType& e) {
        EXPECT_EQ(e.getKind(), "SparseComplexDouble");
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
        EXPECT_EQ(e.getTypeCode(), InvalidArrayTypeException::TypeCode);
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
