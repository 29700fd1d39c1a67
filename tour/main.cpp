// The narrated tour that ./scripts/tour runs.
#include <iostream>

#include "tour.h"

int main(int argc, char** argv) {
    using namespace tour;
    for (int i = 1; i + 1 < argc; i += 2) {
        options[argv[i]] = argv[i + 1];
    }
    if (!options.count("--python")) {
        std::cerr << "usage: vx-tour --python PATH [--location MODULE_FOLDER]\n";
        return 2;
    }
    // Each chapter stands on the ones before it; a chapter adds itself here.
    const std::vector<void (*)()> chapters = {
        hostArrays,
        startAndPing,
        pythonPrograms,
        buffers,
        classes,
        hostData,
        pythonData,
        objectsAsValues,
        // These two end with a fresh worker: they come last.
        outputDuringACall,
        crashAndRestart,
        closeDown,
    };
    try {
        openSession(options["--python"]);
        for (auto chapterFunction : chapters) {
            chapterFunction();
        }
    } catch (const std::exception& e) {
        std::cerr << "The tour stopped: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
