// Large arrays through shared memory: the host's value semantics hold across
// the connection both ways, and memory comes back after many transfers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "support/memory.h"
#include "support/python.h"

namespace {

using vxtest::Python;
using vxtest::systemPython;
namespace vd = foundation::veltradata;

// A host matrix large enough to be lent, 0, 1, 2, ... in storage order.
vd::TypedArray<double> counting(std::size_t rows, std::size_t columns) {
    vd::TypedArray<double> matrix = vd::ArrayFactory().createArray<double>({rows, columns});
    for (std::size_t k = 0; k < rows * columns; ++k) {
        matrix[k] = static_cast<double>(k);
    }
    return matrix;
}

double first(const vd::Array& array) {
    return static_cast<const double*>(array.getReadOnlyData())[0];
}

TEST(SharedMemory, TheHostsValueSemanticsHoldBothWays) {
    vxpy::Session session;
    session.start(systemPython());
    Python python(session);
    python.exec("import numpy");

    // There: Python views the host's matrix in the host's pages; a write by
    // the host afterwards gives the host a copy, and Python never sees it.
    vd::TypedArray<double> matrix = counting(512, 512);
    const vd::Array view = python.one("pyCreateMemoryView", {matrix});
    const void* lent = matrix.getReadOnlyData();
    matrix[0] = -1.0;
    EXPECT_NE(matrix.getReadOnlyData(), lent);
    const vd::Array viewed = python.invoke(python.eval("lambda v: float(numpy.asarray(v)[0, 0])"),
                                           {view});
    EXPECT_EQ(python.str(viewed), "0.0");

    // Back: a NumPy matrix read by the host stands in the worker's pages.
    // Nothing the worker does afterwards changes it, and a write by the host
    // stays the host's.
    const vd::Array source = python.eval("numpy.arange(262144.0).reshape(512, 512)");
    vd::TypedArray<double> back(python.one("pyBufferGetData", {source}));
    EXPECT_EQ(back[1], 512.0);  // the host's element order
    python.invoke(python.eval("lambda a: a.fill(7.0)"), {source});
    EXPECT_EQ(back[1], 512.0);
    // Sent back and viewed by Python, the worker reads its own pages again.
    const vd::Array again = python.one("pyCreateMemoryView", {back});
    back[0] = 42.0;  // the host's own copy from here on
    EXPECT_EQ(python.str(python.invoke(python.eval("lambda v: float(numpy.asarray(v)[0, 0])"),
                                       {again})),
              "0.0");
    EXPECT_EQ(back[0], 42.0);
    EXPECT_EQ(back[1], 512.0);
}


std::set<std::string> devShmEntries() {
    std::set<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", ignored)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

TEST(SharedMemory, ManyLargeTransfersLeaveMappingsBoundedAndNothingBehind) {
    const std::set<std::string> before = devShmEntries();
    vxpy::Session session;
    session.start(systemPython());
    Python python(session);
    python.exec("import numpy");
    const vd::Array total = python.eval("lambda v: float(numpy.asarray(v).sum())");
    const vd::Array fresh = python.eval("lambda n: numpy.full((n, 1024), 2.0)");
    constexpr std::size_t kRows = 8192;  // 64 MiB of doubles
    for (int round = 0; round < 12; ++round) {
        // A new host matrix each round, viewed and summed by NumPy, and a new
        // NumPy matrix read back.
        vd::TypedArray<double> matrix = vd::ArrayFactory().createArray<double>({kRows, 1024});
        matrix[0] = round;
        const vd::Array view = python.one("pyCreateMemoryView", {matrix});
        EXPECT_EQ(python.str(python.invoke(total, {view})), std::to_string(round) + ".0");
        const vd::Array made =
            python.invoke(fresh, {python.one("pyCreateLong", {vd::ArrayFactory().createScalar(
                                                                 std::int64_t{kRows})})});
        const vd::Array back = python.one("pyBufferGetData", {made});
        EXPECT_EQ(first(back), 2.0);
        session.call("Release", {view});
        session.call("Release", {made});
    }
    EXPECT_LE(vxtest::memfdMappedBytes(::getpid()), std::size_t{512} << 20);
    EXPECT_LE(vxtest::memfdMappedBytes(session.pid()), std::size_t{512} << 20);
    session.close();
    EXPECT_EQ(devShmEntries(), before);
}

}  // namespace
