// Object addresses and the registry: one reference per crossing object,
// AddRef beside it, Release and its harmless repeats, and no growth over
// many create/release cycles.
#include <gtest/gtest.h>

#include <fstream>

#include "support/session.h"

using namespace vxtest;

namespace {

class Objects : public ::testing::Test {
  protected:
    void SetUp() override { startSystemPython(); }

    // The value of an integer expression, read through the commands.
    long long integer(const std::string& expression) {
        const Address value = eval(expression);
        const long long result =
            vd::TypedArray<std::int64_t>(call("pyLongGetDataInt64", {addressArray(value)}))[0];
        release(value);
        return result;
    }
};

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
    exec("import sys\nclass Thing: pass\nthing = Thing()");
    const long long alone = integer("sys.getrefcount(thing)");

    const Address first = eval("thing");
    const Address again = eval("thing");
    EXPECT_EQ(first, again);
    EXPECT_EQ(integer("sys.getrefcount(thing)"), alone + 1);  // the registry's one

    // AddRef adds a reference the registry knows nothing of.
    EXPECT_EQ(textOf(call("AddRef", {addressArray(first)})), "success");
    EXPECT_EQ(integer("sys.getrefcount(thing)"), alone + 2);

    // Release gives back the registry's reference only; repeats change nothing.
    for (int i = 0; i < 3; ++i) {
        vd::Array released = call("Release", {addressArray(first)});
        EXPECT_EQ(released.getType(), vd::ArrayType::VELTRA_STRING);
        EXPECT_EQ(textOf(released), "success");
        EXPECT_EQ(integer("sys.getrefcount(thing)"), alone + 1);
    }
    // Crossing again after the release takes a new registry reference.
    EXPECT_EQ(eval("thing"), first);
    EXPECT_EQ(integer("sys.getrefcount(thing)"), alone + 2);
    release(first);
    EXPECT_EQ(integer("sys.getrefcount(thing)"), alone + 1);
}

TEST_F(Objects, ReleaseOfAnUnknownAddressTouchesNothing) {
    exec("import sys\nlonely = object()");
    const long long alone = integer("sys.getrefcount(lonely)");
    const Address lonely = eval("lonely");
    release(lonely);
    EXPECT_EQ(integer("sys.getrefcount(lonely)"), alone);
    release(lonely);  // not in the registry any more: no reference is dropped
    EXPECT_EQ(integer("sys.getrefcount(lonely)"), alone);
}

TEST_F(Objects, ReleaseOfANonAddressSaysWhatAndFails) {
    testing::internal::CaptureStdout();
    EXPECT_THROW(call("Release", {vd::ArrayFactory().createScalar(1.0)}), std::exception);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "what?\n");
    EXPECT_EQ(textOf(call("Ping")), "success");
}

TEST_F(Objects, NoneAndHandlerHoldersKeepTheBalance) {
    const Address none = addressOf(call("pyCreateNone"));
    EXPECT_EQ(addressOf(call("pyCreateNone")), none);
    EXPECT_TRUE(truthOf(call("pyIsNone", {addressArray(none)})));

    // Commands that hold the object only for their own length leave its
    // count where they found it.
    exec("probe = [1, 2, 3]");
    const Address probe = eval("probe");
    const long long before = refcount(probe);
    for (int i = 0; i < 50; ++i) {
        call("pyIsSequence", {addressArray(probe)});
        call("pySequenceLength", {addressArray(probe)});
        call("pyHasMember", {addressArray(probe), chars("append")});
        call("pyStr", {addressArray(probe)});
        call("pyGetType", {addressArray(probe)});
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
    exec("import sys");
    cycle(5000);  // warm-up: allocator pools, registry buckets
    const long long blocks = integer("sys.getallocatedblocks()");
    const long before = residentKiB();
    cycle(100000);
    EXPECT_LT(integer("sys.getallocatedblocks()") - blocks, 1000);
#if !defined(__SANITIZE_ADDRESS__)
    // (AddressSanitizer keeps freed memory in quarantine: no resident check there.)
    EXPECT_LT(residentKiB() - before, 8 * 1024) << "KiB grown over 100000 cycles";
#else
    (void)before;
#endif
}

TEST_F(Objects, GeneralObjectCommands) {
    const Address list = eval("[3, 1, 2]");
    const Address listType = fetch("builtins.list");
    EXPECT_EQ(addressOf(call("pyGetType", {addressArray(list)})), listType);
    EXPECT_TRUE(truthOf(call("pyIsInstance", {addressArray(list), addressArray(listType)})));
    EXPECT_TRUE(truthOf(
        call("pyIsSubclass", {addressArray(eval("bool")), addressArray(fetch("builtins.int"))})));
    EXPECT_TRUE(truthOf(call("pyIsType", {addressArray(listType)})));
    EXPECT_FALSE(truthOf(call("pyIsType", {addressArray(list)})));
    EXPECT_TRUE(truthOf(call("pyIsCallable", {addressArray(listType)})));
    EXPECT_EQ(strOf(list), "[3, 1, 2]");
    const Address names = addressOf(call("pyDir", {addressArray(list)}));
    EXPECT_GT(vd::TypedArray<std::uint64_t>(call("pySequenceLength", {addressArray(names)}))[0],
              10u);

    // pyEq compares objects, not numbers.
    const Address a = eval("[1, 2]"), b = eval("[1, 2]");
    EXPECT_NE(a, b);
    EXPECT_TRUE(truthOf(call("pyEq", {addressArray(a), addressArray(b)})));

    // Hashes are sign-extended into UINT64.
    vd::Array hash = call("pyGetHash", {addressArray(eval("-2"))});
    EXPECT_EQ(hash.getType(), vd::ArrayType::UINT64);
    EXPECT_EQ(static_cast<std::uint64_t>(vd::TypedArray<std::uint64_t>(hash)[0]),
              0xFFFFFFFFFFFFFFFEull);
    EXPECT_EQ(textOf(field(call("pyGetHash", {addressArray(eval("[]"))}), "exceptionName")),
              "TypeError");

    const Address builtins = addressOf(call("pyCreateBuiltinModule"));
    EXPECT_TRUE(truthOf(call("pyIsModule", {addressArray(builtins)})));
    EXPECT_EQ(textOf(call("pyGetBuiltinsName")), "builtins");
}

TEST_F(Objects, FetchAndModulesAnswerOrFailAsTheHostExpects) {
    EXPECT_EQ(strOf(fetch("os.path.sep")), "/");
    EXPECT_EQ(strOf(fetch("xml.dom.minidom.Node.ELEMENT_NODE")), "1");  // imports on the way
    try {
        fetch("os..path");
        ADD_FAILURE();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "BadPythonName");
    }
    try {
        fetch("os.no_such_name");
        ADD_FAILURE();
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "SearchFailure");
    }
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
    const vd::Array report = call("pyCreateModuleException", {chars("vx_broken")});
    EXPECT_EQ(textOf(field(report, "exceptionName")), "ValueError");
    EXPECT_EQ(textOf(field(report, "exceptionMessage")), "1");
    EXPECT_FALSE(errorOccurred());
    EXPECT_THROW(call("pyCreateModule", {vd::ArrayFactory().createScalar(1.0)}), std::exception);
}
