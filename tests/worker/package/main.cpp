// Python out of process from an outside project: app [python]
#include <vxpy/client.h>

#include <iostream>

int main(int argc, char** argv) {
    namespace vd = foundation::veltradata;
    vd::ArrayFactory f;
    vxpy::Session python;  // the installed worker, found beside the installed client
    python.start(vxpy::Interpreter::find(argc > 1 ? argv[1] : "python3"));
    auto math = python.call("pyCreateModule", {f.createCharArray(std::string("math"))});
    auto pi = python.call("pyGetMember", {math[0], f.createCharArray(std::string("pi"))});
    auto text = python.call("pyStr", pi);
    std::cout << "math.pi = " << vd::CharArray(python.call("pyUnicodeGetData", text)[0]).toAscii()
              << std::endl;
}
