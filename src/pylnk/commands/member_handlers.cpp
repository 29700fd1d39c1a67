
#include "base/handler_support.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// A name given as a char array is text; any other array is an address (and
// anything but UINT64 fails there).
bool nameIsText(vd::Array* prhs) {
    return prhs[1].getType() == vd::ArrayType::CHAR;
}

// The name as a Python object: a temporary string for text, else the
// host's object, which the command does not release.
H nameObject(vd::Array* prhs) {
    if (nameIsText(prhs)) {
        return primitive::pyCreateString(asciiArg(prhs, 1));
    }
    return holderOf(addressArg(prhs, 1));
}

}  // namespace

VX_COMMAND(pyHasMemberHandler, "pyHasMember", 2) {
    python::pyArray* target = addressArg(prhs, 0);
    const bool has = nameIsText(prhs) ? object::pyHasMember(target, asciiArg(prhs, 1).c_str())
                                      : object::pyHasMember(target, addressArg(prhs, 1));
    reply(promise, truthValue(has));
}

VX_COMMAND(pyGetMemberHandler, "pyGetMember", 2) {
    python::pyArray* target = addressArg(prhs, 0);
    H member = nameIsText(prhs) ? object::pyGetMember(target, asciiArg(prhs, 1).c_str())
                                : object::pyGetMember(target, addressArg(prhs, 1));
    reply(promise, objectAddress(member));
}

VX_COMMAND(pySetMemberHandler, "pySetMember", 3) {
    H memberName = nameObject(prhs);
    object::pySetMember(addressArg(prhs, 0), memberName.get(), addressArg(prhs, 2));
    reply(promise, successString());
}

VX_COMMAND(pyGetKeyHandler, "pyGetKey", 2) {
    H key = nameObject(prhs);
    reply(promise, objectAddress(mapping::pyMappingGetItem(addressArg(prhs, 0), key.get())));
}

VX_COMMAND(pySetKeyHandler, "pySetKey", 3) {
    // The key must be an address: a char array fails in the typed read.
    mapping::pyMappingSetKey(addressArg(prhs, 0), addressArg(prhs, 1), addressArg(prhs, 2));
    reply(promise, successString());
}

}  // namespace pylnk
