#include "service/handler_table.h"

#include "base/exception_report.h"
#include "introspection/class_metadata.h"

namespace pylnk {

void buildHandlerTable(HandlerTable& table) {
    describeReportedClassesWith([](const H& name, const H& cls) {
        return ClassDescription{buildClassProperties(cls.get()), buildClassMetadata(name, cls)};
    });
    for (const CommandRow* row = firstCommandRow(); row != nullptr; row = row->next) {
        table.emplace(row->name, HandlerEntry{row->makeHandler(), row});
    }
}

}  // namespace pylnk
