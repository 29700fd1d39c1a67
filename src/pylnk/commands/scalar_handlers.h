// Scalar commands: build and take apart None, bools, integers, floats,
// complex numbers, strings, tuples, sequences and mappings one at a time.
#pragma once

#include "base/py_handler_base.h"

namespace pylnk {

VX_DECLARE_HANDLER(pyIsNoneHandler);
VX_DECLARE_HANDLER(pyCreateNoneHandler);
VX_DECLARE_HANDLER(pyIsBoolHandler);
VX_DECLARE_HANDLER(pyCreateBoolHandler);
VX_DECLARE_HANDLER(pyBoolGetDataHandler);
VX_DECLARE_HANDLER(pyIsIntHandler);
VX_DECLARE_HANDLER(pyCreateIntHandler);
VX_DECLARE_HANDLER(pyIntGetDataHandler);
VX_DECLARE_HANDLER(pyIsLongHandler);
VX_DECLARE_HANDLER(pyCreateLongHandler);
VX_DECLARE_HANDLER(pyCreateULongHandler);
VX_DECLARE_HANDLER(pyLongGetDataInt64Handler);
VX_DECLARE_HANDLER(pyLongGetDataUInt64Handler);
VX_DECLARE_HANDLER(pyIsFloatHandler);
VX_DECLARE_HANDLER(pyCreateFloatHandler);
VX_DECLARE_HANDLER(pyFloatGetDataHandler);
VX_DECLARE_HANDLER(pyIsComplexHandler);
VX_DECLARE_HANDLER(pyCreateComplexHandler);
VX_DECLARE_HANDLER(pyComplexGetPrHandler);
VX_DECLARE_HANDLER(pyComplexGetPiHandler);
VX_DECLARE_HANDLER(pyIsStringHandler);
VX_DECLARE_HANDLER(pyCreateStringHandler);
VX_DECLARE_HANDLER(pyStringGetDataHandler);
VX_DECLARE_HANDLER(pyIsUnicodeHandler);
VX_DECLARE_HANDLER(pyCreateUnicodeHandler);
VX_DECLARE_HANDLER(pyUnicodeGetDataHandler);
VX_DECLARE_HANDLER(pyCreateTupleHandler);
VX_DECLARE_HANDLER(pyTupleSetHandler);
VX_DECLARE_HANDLER(pyIsSequenceHandler);
VX_DECLARE_HANDLER(pyIsListHandler);
VX_DECLARE_HANDLER(pyIsTupleHandler);
VX_DECLARE_HANDLER(pySequenceLengthHandler);
VX_DECLARE_HANDLER(pySequenceGetHandler);
VX_DECLARE_HANDLER(pyIsMappingHandler);
VX_DECLARE_HANDLER(pyIsDictHandler);
VX_DECLARE_HANDLER(pyCreateDictHandler);
VX_DECLARE_HANDLER(pyMappingGetItemsHandler);

}  // namespace pylnk
