#include "service/handler_table.h"

#include "buffer/buffer_handlers.h"
#include "commands/invoke_handlers.h"
#include "commands/member_handlers.h"
#include "commands/object_handlers.h"
#include "commands/scalar_handlers.h"
#include "service/close_handler.h"
#include "service/error_handlers.h"

namespace pylnk {

namespace {

template <class Handler>
void row(HandlerTable& table, const char* command) {
    table.emplace(command, new Handler());
}

}  // namespace

PyHandlerBase::PyHandlerBase() : api(pylnk_core::loader::getAPI()) {}
PyHandlerBase::~PyHandlerBase() = default;

// One row per command; a name missing here is an unknown command. The
// commands of the conversion, extraction and introspection families join
// the table with their handlers.
void buildHandlerTable(HandlerTable& table) {
    row<AddRefHandler>(table, "AddRef");
    row<ReleaseHandler>(table, "Release");
    row<pyCloseHandler>(table, "pyClose");
    row<pyInvokeIntHandler>(table, "pyInvokeInt");
    row<pyInvokeUIntHandler>(table, "pyInvokeUInt");
    row<pyCreateModuleHandler>(table, "pyCreateModule");
    row<pyCreateModuleExceptionHandler>(table, "pyCreateModuleException");
    row<pyCreateBuiltinModuleHandler>(table, "pyCreateBuiltinModule");
    row<pyIsModuleHandler>(table, "pyIsModule");
    row<pyHasMemberHandler>(table, "pyHasMember");
    row<pyGetMemberHandler>(table, "pyGetMember");
    row<pySetMemberHandler>(table, "pySetMember");
    row<pyGetKeyHandler>(table, "pyGetKey");
    row<pySetKeyHandler>(table, "pySetKey");
    row<pyEqHandler>(table, "pyEq");
    row<pyStrHandler>(table, "pyStr");
    row<pyDirHandler>(table, "pyDir");
    row<pyGetTypeHandler>(table, "pyGetType");
    row<pyIsInstanceHandler>(table, "pyIsInstance");
    row<pyIsSubclassHandler>(table, "pyIsSubclass");
    row<pyIsCallableHandler>(table, "pyIsCallable");
    row<pyInvokeHandler>(table, "pyInvoke");
    row<pyGetHashHandler>(table, "pyGetHash");
    row<pyIsTypeHandler>(table, "pyIsType");
    row<pyIsSequenceHandler>(table, "pyIsSequence");
    row<pyIsListHandler>(table, "pyIsList");
    row<pyIsTupleHandler>(table, "pyIsTuple");
    row<pySequenceLengthHandler>(table, "pySequenceLength");
    row<pySequenceGetHandler>(table, "pySequenceGet");
    row<pyMappingGetItemsHandler>(table, "pyMappingGetItems");
    row<pyCreateTupleHandler>(table, "pyCreateTuple");
    row<pyTupleSetHandler>(table, "pyTupleSet");
    row<pyIsMappingHandler>(table, "pyIsMapping");
    row<pyIsDictHandler>(table, "pyIsDict");
    row<pyCreateDictHandler>(table, "pyCreateDict");
    row<pyIsNoneHandler>(table, "pyIsNone");
    row<pyCreateNoneHandler>(table, "pyCreateNone");
    row<pyIsBoolHandler>(table, "pyIsBool");
    row<pyCreateBoolHandler>(table, "pyCreateBool");
    row<pyBoolGetDataHandler>(table, "pyBoolGetData");
    row<pyIsIntHandler>(table, "pyIsInt");
    row<pyCreateIntHandler>(table, "pyCreateInt");
    row<pyIntGetDataHandler>(table, "pyIntGetData");
    row<pyIsLongHandler>(table, "pyIsLong");
    row<pyCreateLongHandler>(table, "pyCreateLong");
    row<pyCreateULongHandler>(table, "pyCreateULong");
    row<pyLongGetDataInt64Handler>(table, "pyLongGetDataInt64");
    row<pyLongGetDataUInt64Handler>(table, "pyLongGetDataUInt64");
    row<pyIsFloatHandler>(table, "pyIsFloat");
    row<pyCreateFloatHandler>(table, "pyCreateFloat");
    row<pyFloatGetDataHandler>(table, "pyFloatGetData");
    row<pyIsComplexHandler>(table, "pyIsComplex");
    row<pyCreateComplexHandler>(table, "pyCreateComplex");
    row<pyComplexGetPrHandler>(table, "pyComplexGetPr");
    row<pyComplexGetPiHandler>(table, "pyComplexGetPi");
    row<pyIsStringHandler>(table, "pyIsString");
    row<pyCreateStringHandler>(table, "pyCreateString");
    row<pyStringGetDataHandler>(table, "pyStringGetData");
    row<pyIsUnicodeHandler>(table, "pyIsUnicode");
    row<pyCreateUnicodeHandler>(table, "pyCreateUnicode");
    row<pyUnicodeGetDataHandler>(table, "pyUnicodeGetData");
    row<pyGetBuiltinsNameHandler>(table, "pyGetBuiltinsName");
    row<pyCreateBufferHandler>(table, "pyCreateBuffer");
    row<pyIsColumnMajorHandler>(table, "pyIsColumnMajor");
    row<pyCreateMemoryViewHandler>(table, "pyCreateMemoryView");
    row<pyTypeSupportsBufferInterfaceHandler>(table, "pyTypeSupportsBufferInterface");
    row<pyCheckBufferHandler>(table, "pyCheckBuffer");
    row<pyBufferGetDataHandler>(table, "pyBufferGetData");
    row<pyBufferGetFormatHandler>(table, "pyBufferGetFormat");
    row<pyGetBufferDataInQLOrderHandler>(table, "pyGetBufferDataInQLOrder");
    row<pyErrorClearHandler>(table, "pyErrorClear");
    row<pyErrorOccurredHandler>(table, "pyErrorOccurred");
    row<pyErrorFetchHandler>(table, "pyErrorFetch");
    row<pyFetchHandler>(table, "pyFetch");
}

}  // namespace pylnk
