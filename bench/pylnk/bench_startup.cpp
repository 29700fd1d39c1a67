// Start-up to the success token, against `python -c pass` of the same
// interpreter; each measured in a fresh process, medians of several runs.
//   bench_startup [runs]
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <vector>

#include "support/session.h"

using namespace vxtest;
using Clock = std::chrono::steady_clock;

namespace {

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

double timeCommand(const std::string& command) {
    const auto start = Clock::now();
    if (std::system(command.c_str()) != 0) {
        std::cerr << "failed: " << command << "\n";
        std::exit(1);
    }
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 6 && std::string(argv[1]) == "--child") {
        // The interpreter's details come from the parent, as a host would
        // send them: the child only starts it.
        const PythonInstall python{argv[2], argv[3], argv[4], argv[5]};
        const std::string token =
            textOf(call("attemptToStartPython", {startRequest(python, moduleFolder())}));
        return token == "vx_success_token_for_oop_python" ? 0 : 1;
    }
    const int runs = argc > 1 ? std::atoi(argv[1]) : 10;
    const PythonInstall& p = systemPython();
    const std::string self = std::string("'") + argv[0] + "' --child '" + p.executable + "' '" +
                             p.library + "' '" + p.home + "' '" + p.version + "'";
    const std::string plain = "'" + systemPython().executable + "' -c pass";
    std::vector<double> library, python;
    for (int i = 0; i < runs; ++i) {
        library.push_back(timeCommand(self));
        python.push_back(timeCommand(plain));
    }
    std::cout << "start-up to the success token (process, median of " << runs
              << "): " << median(library) << " ms\n"
              << "python -c pass (same interpreter, median): " << median(python) << " ms\n"
              << "ratio: " << median(library) / median(python) << "\n";
    return 0;
}
