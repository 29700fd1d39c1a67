// Questions about objects and types, and the buffer object's own face.
#include "capsule_fixture.h"

namespace vxbuffer_test {
namespace {

using VxbufferQueries = Capsule;

TEST_F(VxbufferQueries, CheckAndTypeSupportedFollowTheBufferProtocol) {
    struct Case {
        const char* object;
        const char* type;
        bool supported;
    };
    exec("class Blob(bytes): pass\nclass Plain: pass");
    for (const Case& c : {Case{"b'xyz'", "bytes", true}, Case{"42", "int", false},
                          Case{"np.ones(3)", "np.ndarray", true}, Case{"Blob(b'1')", "Blob", true},
                          Case{"Plain()", "Plain", false},
                          Case{"libvxbuffer.Buffer(b'1')", "libvxbuffer.Buffer", true}}) {
        SCOPED_TRACE(c.object);
        EXPECT_EQ(api().check(pyArray(eval(c.object).get())), c.supported ? 1 : 0);
        EXPECT_EQ(api().typeSupported(pyArray(eval(c.type).get())), c.supported ? 1 : 0);
    }
    // An instance is not a type: no answer, and no error.
    EXPECT_EQ(api().typeSupported(pyArray(eval("b'xyz'").get())), 0);
}

TEST_F(VxbufferQueries, BufferObjectsAreKnownByTheirSourceAndTheirPythonFace) {
    vd::Array host = vd::standalone::ArrayFactory().createArray(vd::ArrayType::DOUBLE, {2, 2});
    Ref onArray = own(api().makeFromArray(host));
    Ref again = own(api().makeFromObject(pyArray(onArray.get())));
    ASSERT_TRUE(onArray && again) << takeError();
    // A buffer object made from one over a host array stands on that array too.
    EXPECT_EQ(api().standsOnArray(pyArray(again.get())), 1);
    EXPECT_TRUE(api().getData(pyArray(again.get())).sharesDataWith(host));
    EXPECT_EQ(api().isBufferObject(pyArray(again.get())), 1);
    EXPECT_EQ(api().isBufferObject(pyArray(eval("memoryview(b'ab')").get())), 0);

    exec("b = libvxbuffer.Buffer(array.array('i', [1, 2, 3]))");
    EXPECT_TRUE(truth("len(b) == 3 and b.shape == (3,) and b.format == 'i' and b.itemsize == 4"));
    EXPECT_TRUE(
        truth("b.readonly and not b.on_host_array and memoryview(b).tolist() == [1, 2, 3]"));
    EXPECT_TRUE(
        truth("repr(b) == \"<libvxbuffer.Buffer format='i' shape=(3,) over array.array>\""));
    EXPECT_TRUE(raises("libvxbuffer.Buffer(3)", "TypeError"));
    EXPECT_TRUE(raises("len(libvxbuffer.Buffer(np.array(1.0)))", "TypeError"));
    exec("del b");
}

}  // namespace
}  // namespace vxbuffer_test
