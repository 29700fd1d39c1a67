// Python out of process from an outside project: app [python]
#include <vxpy/client.h>

#include <iostream>

int main(int argc, char** argv) {
    vxpy::Session python;  // the installed worker, found beside the installed client
    python.start(vxpy::Interpreter::find(argc > 1 ? argv[1] : "python3"));
    const vxpy::Object math = python.import("math");
    std::cout << "math.pi = " << math.attr("pi").str() << std::endl;
    try {
        math.attr("sqrt")(-1);
    } catch (const vxpy::PythonError& e) {  // caught by type across the library's boundary
        std::cout << "math.sqrt(-1): " << e.what() << std::endl;
    }
}
