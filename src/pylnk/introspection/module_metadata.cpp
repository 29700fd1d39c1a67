#include "introspection/module_metadata.h"

#include <optional>
#include <string>
#include <vector>

#include "base/handler_support.h"
#include "base/object_registry.h"
#include "base/shared_arrays.h"
#include "introspection/class_metadata.h"
#include "introspection/member_lookup.h"
#include "introspection/metadata_caches.h"
#include "introspection/signature.h"

namespace pylnk {

namespace vd = foundation::veltradata;

namespace {

// The module structure; its function and value entries have the same fields.
const std::vector<std::string>& moduleMetadataFields() {
    static const auto* fields = new std::vector<std::string>{
        "objectAddress",   "name",    "moduleName", "docstring", "classes", "packageFunctions",
        "getterFunctions", "aliases", "argTypes"};
    return *fields;
}

const std::vector<std::string>& aliasFields() {
    static const auto* fields =
        new std::vector<std::string>{"objectAddress", "name", "moduleName", "docstring", "bases"};
    return *fields;
}

struct ModuleLists {
    std::vector<vd::StructArray> classes;
    std::vector<vd::StructArray> functions;
    std::vector<vd::StructArray> getters;
    std::vector<vd::StructArray> aliases;
};

class ModuleWalk {
  public:
    explicit ModuleWalk(H module) : module_(std::move(module)) {}

    vd::StructArray run() {
        vd::standalone::ArrayFactory factory;
        vd::StructArray metadata = factory.createStructArray({1, 1}, moduleMetadataFields());
        metadata[0]["objectAddress"] = objectAddress(module_);
        // A module always has both entries; an object that is no module may
        // lack them, and still has text in both fields.
        metadata[0]["name"] = sharedEmptyText();
        metadata[0]["docstring"] = sharedEmptyText();

        H items = mapping::pyMappingGetItems(object::pyGetMember(module_.get(), "__dict__").get());
        const unsigned long long count = sequence::pySequenceLength(items.get());
        for (unsigned long long index = 0; index < count; ++index) {
            H pair = sequence::pyGetItem(items.get(), index);
            H key = sequence::pyGetItem(pair.get(), 0);
            H value = sequence::pyGetItem(pair.get(), 1);
            const std::u16string keyText = textOfObject(key.get());
            if (keyText == u"__name__") {
                metadata[0]["name"] = textArray(textOfObject(value.get()));
            } else if (keyText == u"__doc__") {
                metadata[0]["docstring"] = textArray(textOfObject(value.get()));
            } else {
                sortEntry(key, value, keyText);
            }
        }
        metadata[0]["classes"] = structRow(classMetadataFields(), lists_.classes);
        metadata[0]["packageFunctions"] = structRow(moduleMetadataFields(), lists_.functions);
        metadata[0]["getterFunctions"] = structRow(moduleMetadataFields(), lists_.getters);
        metadata[0]["aliases"] = structRow(aliasFields(), lists_.aliases);
        return metadata;
    }

  private:
    void sortEntry(H key, H value, const std::u16string& keyText) {
        vd::StructArray entry =
            vd::standalone::ArrayFactory().createStructArray({1, 1}, moduleMetadataFields());
        entry[0]["name"] = textArray(keyText);
        entry[0]["docstring"] = textArray(attributeText(value.get(), "__doc__"));
        entry[0]["objectAddress"] = objectAddress(value);
        // A module the module imported is not listed; it stays retained like
        // every entry (it lives in sys.modules anyway).
        if (module::pyIsModule(value.get())) {
            return;
        }
        if (object::pyInspect(value, "isclass")) {
            sortClass(key, value, entry);
            return;
        }
        const bool callable = object::pyIsCallable(value.get());
        buildArgTypes(value, entry);
        (callable ? lists_.functions : lists_.getters).push_back(entry);
    }

    // A class the module holds under the class's own name and that was
    // defined here is described in full. Any other class is a callable the
    // module offers and, where it can be described, an alias.
    void sortClass(H key, H value, vd::StructArray& entry) {
        H className = object::pyGetMember(value.get(), "__name__");
        H classModule = object::pyGetMember(value.get(), "__module__");
        python::pyArray* moduleName = moduleNameObject();
        if (moduleName != nullptr && object::pyEqual(key.get(), className.get()) &&
            object::pyEqual(moduleName, classModule.get())) {
            // The class is retained again under the same address.
            lists_.classes.push_back(buildClassMetadata(key, value));
            return;
        }
        buildArgTypes(value, entry);
        lists_.functions.push_back(entry);
        try {
            vd::StructArray alias =
                vd::standalone::ArrayFactory().createStructArray({1, 1}, aliasFields());
            for (const char* field : {"objectAddress", "name", "docstring"}) {
                alias[0][field] = vd::Array(entry[0][field]);
            }
            alias[0]["moduleName"] = textArray(textOfObject(classModule.get()));
            alias[0]["bases"] = buildBaseNames(value);
            lists_.aliases.push_back(alias);
        } catch (...) {
            exception::pyErrorClear();
        }
    }

    // The module's __name__, read once, at the first class. A module without
    // one has defined no class of its own: every class it holds is an alias.
    python::pyArray* moduleNameObject() {
        if (!moduleName_) {
            try {
                moduleName_ = object::pyGetMember(module_.get(), "__name__");
            } catch (...) {
                exception::pyErrorClear();
                moduleName_ = H();
            }
        }
        return moduleName_->get();
    }

    H module_;
    std::optional<H> moduleName_;
    ModuleLists lists_;
};

}  // namespace

vd::StructArray buildModuleMetadata(H module) {
    RegistryRollback rollback;
    vd::StructArray metadata = ModuleWalk(std::move(module)).run();
    rollback.keep();
    return metadata;
}

vd::StructArray cacheModuleMetadata(H module) {
    vd::StructArray metadata = buildModuleMetadata(std::move(module));
    const std::string key = vd::CharArray(vd::Array(metadata[0]["name"])).toAscii();
    if (!key.empty()) {
        moduleMetadataCache()[key] = metadata;
    }
    return metadata;
}

// A hit costs the read of __name__ and one lookup: the host gets the very
// structure of the first walk, with the addresses of that time.
VX_COMMAND(pyGetModuleMetaDataHandler, "pyGetModuleMetaData", 1) {
    H module = holderOf(addressArg(prhs, 0));
    std::string moduleName;
    try {
        moduleName = object::pyGetChars(object::pyGetMember(module.get(), "__name__").get());
    } catch (...) {
        exception::pyErrorClear();
    }
    if (!moduleName.empty()) {
        const auto cached = moduleMetadataCache().find(moduleName);
        if (cached != moduleMetadataCache().end()) {
            reply(promise, cached->second);
            return;
        }
    }
    reply(promise, cacheModuleMetadata(module));
}

}  // namespace pylnk
