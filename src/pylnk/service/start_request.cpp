#include "service/start_request.h"

#include <interprocess/pylnk/protocol.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace pylnk {

namespace vd = foundation::veltradata;
namespace protocol = interprocess::pylnk::protocol;

namespace {

std::u16string readField(vd::StructArray& request, const std::vector<std::string>& names,
                         const std::string& field) {
    if (std::find(names.begin(), names.end(), field) == names.end()) {
        throw std::invalid_argument(std::string(protocol::kStartCommand) +
                                    ": the start request has no field \"" + field + "\".");
    }
    vd::Array value = request[0][field];
    if (value.getType() != vd::ArrayType::CHAR) {
        throw std::invalid_argument(std::string(protocol::kStartCommand) + ": the field \"" +
                                    field + "\" of the start request must be a char array.");
    }
    return vd::CharArray(std::move(value)).toUTF16();
}

}  // namespace

StartRequest readStartRequest(const vd::Array* prhs) {
    if (prhs == nullptr || prhs[0].getType() != vd::ArrayType::STRUCT || prhs[0].isEmpty()) {
        // "... the fields executable, library, home, path, version and qlbuffer_location."
        std::string fields;
        for (size_t i = 0; i < protocol::kStartFields.size(); ++i) {
            const bool last = i + 1 == protocol::kStartFields.size();
            fields += (i == 0 ? ""
                       : last ? " and "
                              : ", ") +
                      std::string(protocol::kStartFields[i]);
        }
        throw std::invalid_argument(std::string(protocol::kStartCommand) +
                                    " expects a struct with the fields " + fields + ".");
    }
    vd::StructArray request(prhs[0]);
    std::vector<std::string> names;
    for (const auto& name : request.getFieldNames()) {
        names.push_back(name);
    }
    StartRequest start;
    namespace field = protocol::start_field;
    start.executable = readField(request, names, field::kExecutable);
    start.library = readField(request, names, field::kLibrary);
    start.home = readField(request, names, field::kHome);
    start.path = readField(request, names, field::kPath);
    start.version = readField(request, names, field::kVersion);
    start.location = readField(request, names, field::kLocation);
    return start;
}

}  // namespace pylnk
