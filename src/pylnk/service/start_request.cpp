#include "service/start_request.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

std::u16string readField(vd::StructArray& request, const std::vector<std::string>& names,
                         const std::string& field) {
    if (std::find(names.begin(), names.end(), field) == names.end()) {
        throw std::invalid_argument("attemptToStartPython: the start request has no field \"" +
                                    field + "\".");
    }
    vd::Array value = request[0][field];
    if (value.getType() != vd::ArrayType::CHAR) {
        throw std::invalid_argument("attemptToStartPython: the field \"" + field +
                                    "\" of the start request must be a char array.");
    }
    return vd::CharArray(std::move(value)).toUTF16();
}

}  // namespace

StartRequest readStartRequest(const vd::Array* prhs) {
    if (prhs == nullptr || prhs[0].getType() != vd::ArrayType::STRUCT || prhs[0].isEmpty()) {
        throw std::invalid_argument(
            "attemptToStartPython expects a struct with the fields executable, library, home, "
            "path, version and qlbuffer_location.");
    }
    vd::StructArray request(prhs[0]);
    std::vector<std::string> names;
    for (const auto& name : request.getFieldNames()) {
        names.push_back(name);
    }
    StartRequest start;
    start.executable = readField(request, names, "executable");
    start.library = readField(request, names, "library");
    start.home = readField(request, names, "home");
    start.path = readField(request, names, "path");
    start.version = readField(request, names, "version");
    start.location = readField(request, names, "qlbuffer_location");
    return start;
}

}  // namespace pylnk
