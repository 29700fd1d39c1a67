#include "service/handler_table.h"

#include "base/exception_report.h"
#include "buffer/buffer_handlers.h"
#include "commands/error_handlers.h"
#include "commands/invoke_handlers.h"
#include "commands/member_handlers.h"
#include "commands/object_handlers.h"
#include "commands/scalar_handlers.h"
#include "from_python/content_handlers.h"
#include "from_python/dataframe.h"
#include "from_python/date_time.h"
#include "from_python/equality_handlers.h"
#include "from_python/property_handlers.h"
#include "introspection/class_handlers.h"
#include "introspection/class_metadata.h"
#include "introspection/module_metadata.h"
#include "service/close_handler.h"
#include "to_python/numeric_arrays.h"

namespace pylnk {

namespace {

std::unordered_map<std::string, size_t>& argumentCounts() {
    static std::unordered_map<std::string, size_t> counts;
    return counts;
}

// One command: its handler and the number of arguments it reads.
template <class Handler>
void row(HandlerTable& table, const char* command, size_t arguments) {
    table.emplace(command, new Handler());
    argumentCounts().emplace(command, arguments);
}

}  // namespace

PyHandlerBase::PyHandlerBase() : api(pylnk_core::loader::getAPI()) {}
PyHandlerBase::~PyHandlerBase() = default;

// One row per command with the number of arguments its handler reads; a
// name missing here is an unknown command. The
// commands of the conversion, extraction and introspection families join
// the table with their handlers.
void buildHandlerTable(HandlerTable& table) {
    describeReportedClassesWith([](const H& name, const H& cls) {
        return ClassDescription{buildClassProperties(cls.get()), buildClassMetadata(name, cls)};
    });
    row<AddRefHandler>(table, "AddRef", 1);
    row<ReleaseHandler>(table, "Release", 1);
    row<pyCloseHandler>(table, "pyClose", 0);
    row<pyInvokeIntHandler>(table, "pyInvokeInt", 1);
    row<pyInvokeUIntHandler>(table, "pyInvokeUInt", 1);
    row<pyCreateModuleHandler>(table, "pyCreateModule", 1);
    row<pyCreateModuleExceptionHandler>(table, "pyCreateModuleException", 1);
    row<pyCreateBuiltinModuleHandler>(table, "pyCreateBuiltinModule", 0);
    row<pyIsModuleHandler>(table, "pyIsModule", 1);
    row<pyHasMemberHandler>(table, "pyHasMember", 2);
    row<pyGetMemberHandler>(table, "pyGetMember", 2);
    row<pySetMemberHandler>(table, "pySetMember", 3);
    row<pyGetKeyHandler>(table, "pyGetKey", 2);
    row<pySetKeyHandler>(table, "pySetKey", 3);
    row<pyEqHandler>(table, "pyEq", 2);
    row<pyStrHandler>(table, "pyStr", 1);
    row<pyDirHandler>(table, "pyDir", 1);
    row<pyGetTypeHandler>(table, "pyGetType", 1);
    row<pyIsInstanceHandler>(table, "pyIsInstance", 2);
    row<pyIsSubclassHandler>(table, "pyIsSubclass", 2);
    row<pyIsCallableHandler>(table, "pyIsCallable", 1);
    row<pyInvokeHandler>(table, "pyInvoke", 2);
    row<pyInvokeFastHandler>(table, "pyInvokeFast", 2);
    row<pyInvokeFastInputHandler>(table, "pyInvokeFastInput", 2);
    row<pyGetHashHandler>(table, "pyGetHash", 1);
    row<pyGetPropertyValueFastHandler>(table, "pyGetPropertyValueFast", 2);
    row<pyGetPropertyValueStructHandler>(table, "pyGetPropertyStruct", 2);
    row<pyIsTypeHandler>(table, "pyIsType", 1);
    row<pyIsSequenceHandler>(table, "pyIsSequence", 1);
    row<pyIsListHandler>(table, "pyIsList", 1);
    row<pyIsTupleHandler>(table, "pyIsTuple", 1);
    row<pySequenceLengthHandler>(table, "pySequenceLength", 1);
    row<pySequenceGetHandler>(table, "pySequenceGet", 2);
    row<pyMappingGetItemsHandler>(table, "pyMappingGetItems", 1);
    row<pyConvertSequenceToCellHandler>(table, "pyConvertSequenceToCell", 1);
    row<pyConvertSequenceToNumericArrayHandler>(table, "pyConvertSequenceToNumericArray", 1);
    row<pyConvertToStringHandler>(table, "pyConvertToString", 1);
    row<pyConvertMappingToStructHandler>(table, "pyConvertMappingToStruct", 1);
    row<pyConvertMappingToDictionaryHandler>(table, "pyConvertMappingToDictionary", 1);
    row<pyCreateTupleHandler>(table, "pyCreateTuple", 1);
    row<pyTupleSetHandler>(table, "pyTupleSet", 3);
    row<pyIsMappingHandler>(table, "pyIsMapping", 1);
    row<pyIsDictHandler>(table, "pyIsDict", 1);
    row<pyCreateDictHandler>(table, "pyCreateDict", 0);
    row<pyIsNoneHandler>(table, "pyIsNone", 1);
    row<pyCreateNoneHandler>(table, "pyCreateNone", 0);
    row<pyIsBoolHandler>(table, "pyIsBool", 1);
    row<pyCreateBoolHandler>(table, "pyCreateBool", 1);
    row<pyBoolGetDataHandler>(table, "pyBoolGetData", 1);
    row<pyIsIntHandler>(table, "pyIsInt", 1);
    row<pyCreateIntHandler>(table, "pyCreateInt", 1);
    row<pyIntGetDataHandler>(table, "pyIntGetData", 1);
    row<pyIsLongHandler>(table, "pyIsLong", 1);
    row<pyCreateLongHandler>(table, "pyCreateLong", 1);
    row<pyCreateULongHandler>(table, "pyCreateULong", 1);
    row<pyLongGetDataInt64Handler>(table, "pyLongGetDataInt64", 1);
    row<pyLongGetDataUInt64Handler>(table, "pyLongGetDataUInt64", 1);
    row<pyIsFloatHandler>(table, "pyIsFloat", 1);
    row<pyCreateFloatHandler>(table, "pyCreateFloat", 1);
    row<pyFloatGetDataHandler>(table, "pyFloatGetData", 1);
    row<pyIsComplexHandler>(table, "pyIsComplex", 1);
    row<pyCreateComplexHandler>(table, "pyCreateComplex", 2);
    row<pyComplexGetPrHandler>(table, "pyComplexGetPr", 1);
    row<pyDatetimeGetDataHandler>(table, "pyDatetimeGetData", 1);
    row<pyTimeDeltaGetDataHandler>(table, "pyTimeDeltaGetData", 1);
    row<pyDataFrameGetDataHandler>(table, "pyDataFrameGetData", 1);
    row<pyDataFrameTimetableGetDataHandler>(table, "pyDataFrameTimetableGetData", 1);
    row<pyDictGetDataHandler>(table, "pyDictGetData", 1);
    row<pyComplexGetPiHandler>(table, "pyComplexGetPi", 1);
    row<pyIsStringHandler>(table, "pyIsString", 1);
    row<pyCreateStringHandler>(table, "pyCreateString", 2);
    row<pyStringGetStringHandler>(table, "pyStringGetString", 1);
    row<pyStringGetStringArrayHandler>(table, "pyStringGetStringArray", 1);
    row<pyStringGetDataHandler>(table, "pyStringGetData", 1);
    row<pyGetBytesHandler>(table, "pyGetBytes", 1);
    row<pyIsUnicodeHandler>(table, "pyIsUnicode", 1);
    row<pyCreateUnicodeHandler>(table, "pyCreateUnicode", 1);
    row<pyUnicodeGetDataHandler>(table, "pyUnicodeGetData", 1);
    row<pyGetModuleMetaDataHandler>(table, "pyGetModuleMetaData", 1);
    row<pyGetClassMetaDataHandler>(table, "pyGetClassMetaData", 1);
    row<pyGetClassPropertiesHandler>(table, "pyGetClassProperties", 1);
    row<pyInspectFastHandler>(table, "pyInspectFast", 2);
    row<pyGetBuiltinsNameHandler>(table, "pyGetBuiltinsName", 0);
    row<pyNumericConversionHandler>(table, "pyNumericConversion", 1);
    row<pyCreateNumericArrayHandler>(table, "pyCreateNumericArray", 3);
    row<pyCreateBufferHandler>(table, "pyCreateBuffer", 1);
    row<pyIsColumnMajorHandler>(table, "pyIsColumnMajor", 1);
    row<pyCreateMemoryViewHandler>(table, "pyCreateMemoryView", 1);
    row<pyTypeSupportsBufferInterfaceHandler>(table, "pyTypeSupportsBufferInterface", 2);
    row<pyCheckBufferHandler>(table, "pyCheckBuffer", 1);
    row<pyBufferGetDataHandler>(table, "pyBufferGetData", 1);
    row<pyBufferGetFormatHandler>(table, "pyBufferGetFormat", 1);
    row<pyGetBufferDataInQLOrderHandler>(table, "pyGetBufferDataInQLOrder", 0);
    row<pyErrorClearHandler>(table, "pyErrorClear", 0);
    row<pyErrorOccurredHandler>(table, "pyErrorOccurred", 0);
    row<pyErrorFetchHandler>(table, "pyErrorFetch", 0);
    row<pyFetchHandler>(table, "pyFetch", 1);
    row<pyIsEqualHandler>(table, "pyIsEqual", 1);
    row<pyIsNumpyArrayEqualHandler>(table, "pyIsNumpyArrayEqual", 1);
}

size_t argumentsOf(const std::string& command) {
    auto found = argumentCounts().find(command);
    return found == argumentCounts().end() ? 0 : found->second;
}

}  // namespace pylnk
