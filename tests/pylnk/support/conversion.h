// Host arrays handed to Python as the host hands them, as arguments of
// pyInvokeFastInput, and what Python made of them read back as text.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/session.h"

namespace vxtest {

// A 1 by 1 struct with these fields in this order.
inline vd::Array structOf(const std::vector<std::pair<std::string, vd::Array>>& fields) {
    std::vector<std::string> names;
    for (const auto& field : fields) {
        names.push_back(field.first);
    }
    vd::StructArray result = vd::ArrayFactory().createStructArray({1, 1}, names);
    for (const auto& [name, value] : fields) {
        result[0][name] = value;
    }
    return result;
}

// The marker of an object the host holds by its address.
inline vd::Array byAddress(Address object) {
    return structOf({{"VX_PylnkSP_PyObjectAddress", uint64Array(object)}});
}

// A marker of an array of dates or durations in the host's shape.
inline vd::Array shapedMarker(const std::string& marker, const std::string& field,
                              const vd::Array& values, const std::vector<std::uint64_t>& dims) {
    return structOf(
        {{marker,
          structOf({{field, values}, {"ndims", uint64Array(dims.size())}, {"dims", row(dims)}})}});
}

inline vd::Array cellOf(const std::vector<vd::Array>& elements) {
    return vd::ArrayFactory().createCellArray({1, elements.size()}, elements);
}

// The keyword struct of a call: "kwargKey<i>" and "kwargValue<i>".
inline vd::Array keywordsOf(const std::vector<std::pair<vd::Array, vd::Array>>& pairs) {
    std::vector<std::pair<std::string, vd::Array>> fields;
    for (size_t i = 0; i < pairs.size(); ++i) {
        fields.emplace_back("kwargKey" + std::to_string(i), pairs[i].first);
        fields.emplace_back("kwargValue" + std::to_string(i), pairs[i].second);
    }
    return fields.empty() ? vd::ArrayFactory().createStructArray({0, 0}, {}) : structOf(fields);
}

inline vd::Array invokeFastInput(Address callable, const std::vector<vd::Array>& positional,
                                 vd::Array keywords = keywordsOf({})) {
    return call("pyInvokeFastInput",
                {addressArray(callable), cellOf({cellOf(positional), keywords})});
}

// str() of the returned object; "<identifier>: <message>" for a failure
// report; "refused" for the empty reply of a type without a Python form.
inline std::string replyText(const vd::Array& reply) {
    if (reply.getType() != vd::ArrayType::STRUCT) {
        return reply.isEmpty() ? "refused" : "unexpected reply";
    }
    const Address object = addressOf(field(reply, "object"));
    const std::string text =
        fieldNames(reply).front() == "exceptionName" ? reportOf(reply) : strOf(object);
    release(object);
    return text;
}

// str(<expression>) of x, the converted host array.
inline std::string seen(const std::string& expression, const vd::Array& value) {
    exec("def _seen(x):\n    return str(" + expression + ")\n");
    return replyText(invokeFastInput(eval("_seen"), {value}));
}

}  // namespace vxtest
