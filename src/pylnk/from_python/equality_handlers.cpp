
#include <optional>
#include <utility>
#include <vector>

#include "base/handler_support.h"
#include "from_python/object_result.h"
#include "to_python/convert_to_python.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// The values to compare and the keywords, kept as pairs: no dict is made.
struct Comparison {
    std::vector<H> values;
    std::vector<std::pair<H, H>> keywords;
};

// Converts the input (a cell of positional values and a struct of keyword
// pairs) and answers with what `compare` makes of it, or with the failure
// array of the first conversion that failed. Either way the converted
// objects go when this returns.
template <class Compare>
void answerComparison(vd::Array input, ReplyPromise* promise, Compare&& compare) {
    const HostCallInput call = readHostCallInput(std::move(input));
    Comparison comparison;
    std::optional<vd::Array> failure = convertPositionalValues(call.positional, comparison.values);
    if (!failure && !call.keywords.isEmpty()) {
        failure = convertKeywordPairs(call.keywords, [&](H key, H value) {
            comparison.keywords.emplace_back(std::move(key), std::move(value));
        });
    }
    reply(promise, failure ? std::move(*failure) : compare(comparison));
}

}  // namespace

VX_COMMAND(pyIsEqualHandler, "pyIsEqual", 1) {
    answerComparison(prhs[0], promise, [](Comparison& comparison) {
        return buildObjectResult(object::pyIsEqualOperator(comparison.values, comparison.keywords),
                                 classMetadataCache());
    });
}

VX_COMMAND(pyIsNumpyArrayEqualHandler, "pyIsNumpyArrayEqual", 1) {
    answerComparison(prhs[0], promise, [](Comparison& comparison) {
        return truthValue(object::pyIsEqualNumpyArray(comparison.values, comparison.keywords));
    });
}

}  // namespace pylnk
