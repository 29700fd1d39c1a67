// Object addresses and the registry: one reference per crossing object,
// AddRef beside it, Release and its harmless repeats, and no growth over
// many create/release cycles.
#include <gtest/gtest.h>

#include <fstream>

#include "support/session.h"

using namespace vxtest;

namespace {

using Objects = SessionTest;

long residentKiB() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return 0;
}

}  // namespace

TEST_F(Objects, OneRegistryReferenceHoweverOftenAnObjectCrosses) {
    exec("class Thing: pass\nthing = Thing()");
    const long long alone = pythonRefcount("thing");

    const Address first = eval("thing");
    EXPECT_EQ(eval("thing"), first);
    EXPECT_EQ(pythonRefcount("thing"), alone + 1);  // the registry's one

    // AddRef adds a reference the registry knows nothing of.
    EXPECT_EQ(textOf(call("AddRef", {addressArray(first)})), "success");
    EXPECT_EQ(pythonRefcount("thing"), alone + 2);

    // Release gives back the registry's reference only; repeats, of an
    // address the registry no longer knows, change nothing.
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(show(call("Release", {addressArray(first)})), "VELTRA_STRING 1x1: success");
        EXPECT_EQ(pythonRefcount("thing"), alone + 1);
    }
    // Crossing again after the release takes a new registry reference.
    EXPECT_EQ(eval("thing"), first);
    EXPECT_EQ(pythonRefcount("thing"), alone + 2);
    release(first);
    EXPECT_EQ(pythonRefcount("thing"), alone + 1);

    // Release of what is no address says so and fails.
    testing::internal::CaptureStdout();
    EXPECT_THROW(call("Release", {f.createScalar(1.0)}), std::exception);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "what?\n");
    EXPECT_EQ(textOf(call("Ping")), "success");
}

TEST_F(Objects, NoneAndHandlerHoldersKeepTheBalance) {
    const Address none = addressOf(call("pyCreateNone"));
    EXPECT_EQ(addressOf(call("pyCreateNone")), none);
    EXPECT_TRUE(truthOf(call("pyIsNone", {addressArray(none)})));

    // Commands that hold the object only for their own length leave its
    // count where they found it.
    const Address probe = eval("[1, 2, 3]");
    const long long before = refcount(probe);
    for (int i = 0; i < 50; ++i) {
        for (const char* command : {"pyIsSequence", "pySequenceLength", "pyStr", "pyGetType"}) {
            call(command, {addressArray(probe)});
        }
        call("pyHasMember", {addressArray(probe), chars("append")});
    }
    EXPECT_EQ(refcount(probe), before);
}

TEST_F(Objects, ManyCreateReleaseCyclesLeaveMemoryFlat) {
    // Small strings live in Python's own allocator, whose block count is
    // exact; the process's resident size covers the registry as well.
    const std::u16string payload(64, u'x');
    auto cycle = [&](int count) {
        for (int i = 0; i < count; ++i) {
            release(unicode(payload + std::u16string(1, char16_t(u'a' + i % 26))));
        }
    };
    cycle(5000);  // warm-up: allocator pools, registry buckets
    const long long blocks = integer("__import__('sys').getallocatedblocks()");
    const long before = residentKiB();
    cycle(100000);
    EXPECT_LT(integer("__import__('sys').getallocatedblocks()") - blocks, 1000);
#if !defined(__SANITIZE_ADDRESS__)
    // (AddressSanitizer keeps freed memory in quarantine: no resident check there.)
    EXPECT_LT(residentKiB() - before, 8 * 1024) << "KiB grown over 100000 cycles";
#else
    (void)before;
#endif
}

TEST_F(Objects, GeneralObjectCommandsFetchAndModules) {
    const Address list = eval("[3, 1, 2]");
    const Address listType = fetch("builtins.list");
    EXPECT_EQ(addressOf(call("pyGetType", {addressArray(list)})), listType);
    EXPECT_TRUE(truthOf(call("pyIsInstance", {addressArray(list), addressArray(listType)})));
    EXPECT_TRUE(truthOf(callOn("pyIsSubclass", "bool", {addressArray(fetch("builtins.int"))})));
    for (const auto& [command, object, answer] :
         {std::tuple{"pyIsType", listType, true}, std::tuple{"pyIsType", list, false},
          std::tuple{"pyIsCallable", listType, true}}) {
        EXPECT_EQ(truthOf(call(command, {addressArray(object)})), answer) << command;
    }
    const Address names = addressOf(call("pyDir", {addressArray(list)}));
    EXPECT_GT(valueOf<std::uint64_t>(call("pySequenceLength", {addressArray(names)})), 10u);

    // pyEq compares objects, not addresses.
    EXPECT_TRUE(truthOf(callOn("pyEq", "[1, 2]", {addressArray(eval("[1, 2]"))})));

    const Address builtins = addressOf(call("pyCreateBuiltinModule"));
    EXPECT_TRUE(truthOf(call("pyIsModule", {addressArray(builtins)})));
    EXPECT_EQ(textOf(call("pyGetBuiltinsName")), "builtins");

    // Fetch and the modules answer or fail as the host expects.
    EXPECT_EQ(strOf(fetch("os.path.sep")), "/");
    EXPECT_EQ(strOf(fetch("xml.dom.minidom.Node.ELEMENT_NODE")), "1");  // imports on the way
    EXPECT_EQ(failureOf<std::runtime_error>([] { fetch("os..path"); }), "BadPythonName");
    EXPECT_EQ(failureOf<std::runtime_error>([] { fetch("os.no_such_name"); }), "SearchFailure");
    EXPECT_FALSE(errorOccurred());

    const Address json = addressOf(call("pyCreateModule", {chars("json")}));
    EXPECT_TRUE(truthOf(call("pyIsModule", {addressArray(json)})));
    EXPECT_EQ(addressOf(call("pyCreateModuleException", {chars("json")})), json);

    // A module that raises while importing: pyCreateModule clears the error
    // and fails, the report variant answers with the report.
    exec(
        "import sys, tempfile, os\n"
        "folder = tempfile.mkdtemp()\n"
        "open(os.path.join(folder, 'vx_broken.py'), 'w').write('raise ValueError(1)')\n"
        "sys.path.insert(0, folder)");
    EXPECT_THROW(call("pyCreateModule", {chars("vx_broken")}), std::exception);
    EXPECT_FALSE(errorOccurred());
    EXPECT_EQ(reportOf(call("pyCreateModuleException", {chars("vx_broken")})), "ValueError: 1");
    EXPECT_FALSE(errorOccurred());
    EXPECT_THROW(call("pyCreateModule", {f.createScalar(1.0)}), std::exception);
}
