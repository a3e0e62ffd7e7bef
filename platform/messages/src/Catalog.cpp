#include <messages/Catalog.hpp>

namespace messages {

namespace {

constexpr const CatalogEntry* kEntries[] = {
    &kInvalidFileName, &kInvalidFileExtension, &kInvalidFileExtensionCase,
    &kLoadFailed,      &kUndefinedClass,       &kAbstractClass,
    &kUndefinedMethod, &kWrongNumberOfInputs,  &kWrongInputType,
    &kNotAText,        &kNotAnObject,          &kDestroyedObject,
    &kForeignObject,
};

}  // namespace

const CatalogEntry* findEntry(std::string_view catalog, std::string_view identifier) {
    for (const CatalogEntry* const entry : kEntries) {
        if (entry->catalog == catalog && entry->identifier == identifier) return entry;
    }
    return nullptr;
}

}  // namespace messages
