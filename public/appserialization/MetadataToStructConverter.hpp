#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>

#include <memory>

struct hvArray_tag;

namespace appserialization {

// Copies metadata into a struct array of the host. The target is a struct array that the caller has
// made and keeps owning; its element 0 has the fields named in appmetadata::kFieldNames. A text
// becomes a row of characters, a list an n-by-1 cell array of such rows (0-by-0 when it is empty); an
// absent value becomes an empty one of its kind.
//
// Errors of the array library pass unchanged, such as matrix::ArrayError for a target that is no
// struct or lacks a field. The fields set until then stay set, and nothing else is left allocated.
class APPSERIALIZATION_API MetadataToStructConverter {
public:
    MetadataToStructConverter();
    ~MetadataToStructConverter();
    MetadataToStructConverter(const MetadataToStructConverter&) = delete;
    MetadataToStructConverter& operator=(const MetadataToStructConverter&) = delete;

    // Sets all fourteen fields.
    void convertAppMetadataToStruct(const AppMetadata& metadata, hvArray_tag* target) const;

    // Sets the fields that the map has, in the order of their numbers, and leaves the others alone. A
    // key that is no field is an error of the program and ends the process.
    void convertMetadataMapToStruct(const appmetadata::MetadataMap& metadata,
                                    hvArray_tag* target) const;

private:
    class MetadataToStructConverterImpl;
    std::unique_ptr<MetadataToStructConverterImpl> impl_;
};

}  // namespace appserialization
