
#include "base/handler_support.h"

namespace pylnk {

namespace vd = foundation::veltradata;

// Type tests: one address in, a truth value out, no error left set.
VX_COMMAND(pyIsNoneHandler, "pyIsNone", 1) {
    reply(promise, truthValue(object::pyIsNone(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsBoolHandler, "pyIsBool", 1) {
    reply(promise, truthValue(primitive::pyIsBool(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsIntHandler, "pyIsInt", 1) {
    reply(promise, truthValue(primitive::pyIsInt(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsLongHandler, "pyIsLong", 1) {
    reply(promise, truthValue(primitive::pyIsLong(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsFloatHandler, "pyIsFloat", 1) {
    reply(promise, truthValue(primitive::pyIsFloat(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsComplexHandler, "pyIsComplex", 1) {
    reply(promise, truthValue(primitive::pyIsComplex(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsStringHandler, "pyIsString", 1) {
    reply(promise, truthValue(primitive::pyIsString(addressArg(prhs, 0))));
}
// Python 3 has one text type: the unicode commands are the string commands.
VX_COMMAND(pyIsUnicodeHandler, "pyIsUnicode", 1) {
    pyIsStringHandler().execute(name, nlhs, promise, nrhs, prhs);
}
VX_COMMAND(pyIsSequenceHandler, "pyIsSequence", 1) {
    reply(promise, truthValue(sequence::pyIsSequence(addressArg(prhs, 0))));
}
// The bridge has no list test of its own; the builtins type test serves.
VX_COMMAND(pyIsListHandler, "pyIsList", 1) {
    reply(promise, truthValue(object::pyIsBuiltin(addressArg(prhs, 0), "list")));
}
VX_COMMAND(pyIsTupleHandler, "pyIsTuple", 1) {
    reply(promise, truthValue(sequence::pyTupleCheck(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsMappingHandler, "pyIsMapping", 1) {
    reply(promise, truthValue(mapping::pyIsMapping(addressArg(prhs, 0))));
}
VX_COMMAND(pyIsDictHandler, "pyIsDict", 1) {
    reply(promise, truthValue(mapping::pyIsDict(addressArg(prhs, 0))));
}

// Constructors: element 0 of an argument of exactly the named type.
VX_COMMAND(pyCreateNoneHandler, "pyCreateNone", 0) {
    reply(promise, objectAddress(primitive::pyCreateNone()));
}
VX_COMMAND(pyCreateBoolHandler, "pyCreateBool", 1) {
    reply(promise, objectAddress(primitive::pyCreateBool(scalarArg<bool>(prhs, 0))));
}
VX_COMMAND(pyCreateIntHandler, "pyCreateInt", 1) {
    reply(promise, objectAddress(primitive::pyCreateInt(scalarArg<std::int32_t>(prhs, 0))));
}
VX_COMMAND(pyCreateLongHandler, "pyCreateLong", 1) {
    reply(promise, objectAddress(primitive::pyCreateLong(scalarArg<std::int64_t>(prhs, 0))));
}
VX_COMMAND(pyCreateULongHandler, "pyCreateULong", 1) {
    reply(promise, objectAddress(primitive::pyCreateULong(scalarArg<std::uint64_t>(prhs, 0))));
}
VX_COMMAND(pyCreateFloatHandler, "pyCreateFloat", 1) {
    reply(promise, objectAddress(primitive::pyCreateFloat(scalarArg<double>(prhs, 0))));
}
VX_COMMAND(pyCreateComplexHandler, "pyCreateComplex", 2) {
    reply(promise, objectAddress(primitive::pyCreateComplex(scalarArg<double>(prhs, 0),
                                                            scalarArg<double>(prhs, 1))));
}
VX_COMMAND(pyCreateStringHandler, "pyCreateString", 2) {
    const std::string value = asciiArg(prhs, 0);
    vd::TypedArray<std::uint64_t> required(prhs[1]);  // must be UINT64; its value is not used
    reply(promise, objectAddress(primitive::pyCreateString(value)));
}
VX_COMMAND(pyCreateUnicodeHandler, "pyCreateUnicode", 1) {
    reply(promise, objectAddress(primitive::pyCreateString(textArg(prhs, 0))));
}
VX_COMMAND(pyCreateTupleHandler, "pyCreateTuple", 1) {
    reply(promise, objectAddress(sequence::pyTupleCreateSize(scalarArg<std::uint64_t>(prhs, 0))));
}
VX_COMMAND(pyCreateDictHandler, "pyCreateDict", 0) {
    reply(promise, objectAddress(mapping::pyCreateDict()));
}

// Getters. The second-rule reads leave a failed read's error set and reply
// with the untouched zero; the host asks pyErrorOccurred.
VX_COMMAND(pyBoolGetDataHandler, "pyBoolGetData", 1) {
    reply(promise, truthValue(primitive::pyBoolGetData(addressArg(prhs, 0))));
}
VX_COMMAND(pyIntGetDataHandler, "pyIntGetData", 1) {
    reply(promise, int64Value(primitive::pyIntGetData(addressArg(prhs, 0))));
}
VX_COMMAND(pyLongGetDataInt64Handler, "pyLongGetDataInt64", 1) {
    long long value = 0;
    primitive::pyLongGetData(addressArg(prhs, 0), &value);
    reply(promise, int64Value(value));
}
VX_COMMAND(pyLongGetDataUInt64Handler, "pyLongGetDataUInt64", 1) {
    unsigned long long value = 0;
    primitive::pyLongGetDataU(addressArg(prhs, 0), &value);
    reply(promise, uint64Value(value));
}
VX_COMMAND(pyFloatGetDataHandler, "pyFloatGetData", 1) {
    reply(promise, number(primitive::pyFloatGetData(addressArg(prhs, 0))));
}
VX_COMMAND(pyComplexGetPrHandler, "pyComplexGetPr", 1) {
    double re = 0, im = 0;
    primitive::pyComplexGetData(addressArg(prhs, 0), &re, &im);
    reply(promise, number(re));
}
VX_COMMAND(pyComplexGetPiHandler, "pyComplexGetPi", 1) {
    double re = 0, im = 0;
    primitive::pyComplexGetData(addressArg(prhs, 0), &re, &im);
    reply(promise, number(im));
}
VX_COMMAND(pyStringGetDataHandler, "pyStringGetData", 1) {
    reply(promise, text(object::get_ustring(addressArg(prhs, 0))));
}
VX_COMMAND(pyUnicodeGetDataHandler, "pyUnicodeGetData", 1) {
    pyStringGetDataHandler().execute(name, nlhs, promise, nrhs, prhs);
}
VX_COMMAND(pySequenceLengthHandler, "pySequenceLength", 1) {
    reply(promise, uint64Value(sequence::pySequenceLength(addressArg(prhs, 0))));
}
VX_COMMAND(pySequenceGetHandler, "pySequenceGet", 2) {
    reply(promise, objectAddress(sequence::pyGetItem(addressArg(prhs, 0),
                                                     scalarArg<std::uint64_t>(prhs, 1))));
}
VX_COMMAND(pyMappingGetItemsHandler, "pyMappingGetItems", 1) {
    reply(promise, objectAddress(mapping::pyMappingGetItems(addressArg(prhs, 0))));
}

// Writers.
VX_COMMAND(pyTupleSetHandler, "pyTupleSet", 3) {
    // The value stays the host's: the tuple takes a reference of its own.
    sequence::pyTupleSetValue(addressArg(prhs, 0), scalarArg<std::uint64_t>(prhs, 1),
                              addressArg(prhs, 2));
    reply(promise, successString());
}

}  // namespace pylnk
