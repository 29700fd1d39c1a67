#include "commands/scalar_handlers.h"

#include "base/handler_support.h"

namespace pylnk {

namespace vd = foundation::veltradata;

// Type tests: one address in, a truth value out, no error left set.
VX_EXECUTE(pyIsNoneHandler) {
    reply(promise, truthValue(object::pyIsNone(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsBoolHandler) {
    reply(promise, truthValue(primitive::pyIsBool(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsIntHandler) {
    reply(promise, truthValue(primitive::pyIsInt(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsLongHandler) {
    reply(promise, truthValue(primitive::pyIsLong(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsFloatHandler) {
    reply(promise, truthValue(primitive::pyIsFloat(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsComplexHandler) {
    reply(promise, truthValue(primitive::pyIsComplex(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsStringHandler) {
    reply(promise, truthValue(primitive::pyIsString(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsUnicodeHandler) {
    reply(promise, truthValue(primitive::pyIsString(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsSequenceHandler) {
    reply(promise, truthValue(sequence::pyIsSequence(addressArg(prhs, 0))));
}
// The bridge has no list test of its own; the builtins type test serves.
VX_EXECUTE(pyIsListHandler) {
    reply(promise, truthValue(object::pyIsBuiltin(addressArg(prhs, 0), "list")));
}
VX_EXECUTE(pyIsTupleHandler) {
    reply(promise, truthValue(sequence::pyTupleCheck(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsMappingHandler) {
    reply(promise, truthValue(mapping::pyIsMapping(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIsDictHandler) {
    reply(promise, truthValue(mapping::pyIsDict(addressArg(prhs, 0))));
}

// Constructors: element 0 of an argument of exactly the named type.
VX_EXECUTE(pyCreateNoneHandler) {
    reply(promise, objectAddress(primitive::pyCreateNone()));
}
VX_EXECUTE(pyCreateBoolHandler) {
    reply(promise, objectAddress(primitive::pyCreateBool(scalarArg<bool>(prhs, 0))));
}
VX_EXECUTE(pyCreateIntHandler) {
    reply(promise, objectAddress(primitive::pyCreateInt(scalarArg<std::int32_t>(prhs, 0))));
}
VX_EXECUTE(pyCreateLongHandler) {
    reply(promise, objectAddress(primitive::pyCreateLong(scalarArg<std::int64_t>(prhs, 0))));
}
VX_EXECUTE(pyCreateULongHandler) {
    reply(promise, objectAddress(primitive::pyCreateULong(scalarArg<std::uint64_t>(prhs, 0))));
}
VX_EXECUTE(pyCreateFloatHandler) {
    reply(promise, objectAddress(primitive::pyCreateFloat(scalarArg<double>(prhs, 0))));
}
VX_EXECUTE(pyCreateComplexHandler) {
    reply(promise, objectAddress(primitive::pyCreateComplex(scalarArg<double>(prhs, 0),
                                                            scalarArg<double>(prhs, 1))));
}
VX_EXECUTE(pyCreateStringHandler) {
    const std::string value = asciiArg(prhs, 0);
    vd::TypedArray<std::uint64_t> required(prhs[1]);  // must be UINT64; its value is not used
    reply(promise, objectAddress(primitive::pyCreateString(value)));
}
VX_EXECUTE(pyCreateUnicodeHandler) {
    reply(promise, objectAddress(primitive::pyCreateString(textArg(prhs, 0))));
}
VX_EXECUTE(pyCreateTupleHandler) {
    reply(promise, objectAddress(sequence::pyTupleCreateSize(scalarArg<std::uint64_t>(prhs, 0))));
}
VX_EXECUTE(pyCreateDictHandler) {
    reply(promise, objectAddress(mapping::pyCreateDict()));
}

// Getters. The second-rule reads leave a failed read's error set and reply
// with the untouched zero; the host asks pyErrorOccurred.
VX_EXECUTE(pyBoolGetDataHandler) {
    reply(promise, truthValue(primitive::pyBoolGetData(addressArg(prhs, 0))));
}
VX_EXECUTE(pyIntGetDataHandler) {
    reply(promise, int64Value(primitive::pyIntGetData(addressArg(prhs, 0))));
}
VX_EXECUTE(pyLongGetDataInt64Handler) {
    long long value = 0;
    primitive::pyLongGetData(addressArg(prhs, 0), &value);
    reply(promise, int64Value(value));
}
VX_EXECUTE(pyLongGetDataUInt64Handler) {
    unsigned long long value = 0;
    primitive::pyLongGetDataU(addressArg(prhs, 0), &value);
    reply(promise, uint64Value(value));
}
VX_EXECUTE(pyFloatGetDataHandler) {
    reply(promise, number(primitive::pyFloatGetData(addressArg(prhs, 0))));
}
VX_EXECUTE(pyComplexGetPrHandler) {
    double re = 0, im = 0;
    primitive::pyComplexGetData(addressArg(prhs, 0), &re, &im);
    reply(promise, number(re));
}
VX_EXECUTE(pyComplexGetPiHandler) {
    double re = 0, im = 0;
    primitive::pyComplexGetData(addressArg(prhs, 0), &re, &im);
    reply(promise, number(im));
}
VX_EXECUTE(pyStringGetDataHandler) {
    reply(promise, text(object::get_ustring(addressArg(prhs, 0))));
}
VX_EXECUTE(pyUnicodeGetDataHandler) {
    reply(promise, text(object::get_ustring(addressArg(prhs, 0))));
}
VX_EXECUTE(pySequenceLengthHandler) {
    reply(promise, uint64Value(sequence::pySequenceLength(addressArg(prhs, 0))));
}
VX_EXECUTE(pySequenceGetHandler) {
    reply(promise, objectAddress(sequence::pyGetItem(addressArg(prhs, 0),
                                                     scalarArg<std::uint64_t>(prhs, 1))));
}
VX_EXECUTE(pyMappingGetItemsHandler) {
    reply(promise, objectAddress(mapping::pyMappingGetItems(addressArg(prhs, 0))));
}

// Writers.
VX_EXECUTE(pyTupleSetHandler) {
    // The value stays the host's: the tuple takes a reference of its own.
    sequence::pyTupleSetValue(addressArg(prhs, 0), scalarArg<std::uint64_t>(prhs, 1),
                              addressArg(prhs, 2));
    reply(promise, successString());
}

}  // namespace pylnk
