// The narrated tour that ./scripts/tour runs.
#include <iostream>

#include "tour.h"

int main(int argc, char** argv) {
    using namespace tour;
    for (int i = 1; i + 1 < argc; i += 2) {
        options[argv[i]] = argv[i + 1];
    }
    for (const char* required :
         {"--executable", "--library", "--home", "--version", "--location"}) {
        if (!options.count(required)) {
            std::cerr << "vx-tour needs " << required << "\n";
            return 2;
        }
    }
    // Each chapter stands on the ones before it; a chapter adds itself here.
    const std::vector<void (*)()> chapters = {
        hostArrays, startAndPing, pythonPrograms, buffers, classes, hostData, closeDown,
    };
    try {
        for (auto chapterFunction : chapters) {
            chapterFunction();
        }
    } catch (const std::exception& e) {
        std::cerr << "The tour stopped: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
