#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/Export.hpp>

#include <memory>

struct hvArray_tag;

namespace appserialization {

// Copies metadata into a struct array of the host. The caller makes the target with the fields of
// appmetadata::kFieldNames, and keeps owning it; only its element 0 is set. A text becomes a row of
// characters. A list becomes an n-by-1 cell array of such rows, or a 0-by-0 one if it is empty. An
// absent value becomes an empty one. A converter has no state: use it as often as needed, from any
// thread.
//
// Errors of the array library pass unchanged, such as matrix::ArrayError for a target that is not a
// struct, lacks a field or has several references. The fields set before then stay set, and no
// array is leaked.
class APPSERIALIZATION_API MetadataToStructConverter {
public:
    MetadataToStructConverter();
    ~MetadataToStructConverter();
    MetadataToStructConverter(const MetadataToStructConverter&) = delete;
    MetadataToStructConverter& operator=(const MetadataToStructConverter&) = delete;

    // Sets all fourteen fields.
    void convertAppMetadataToStruct(const AppMetadata& metadata, hvArray_tag* target) const;

    // Sets the fields that the map has, in the order of their numbers, and leaves the others as
    // they are. A key that is not a field is an error of the program: it is reported on standard
    // error, and the process is aborted.
    void convertMetadataMapToStruct(const appmetadata::MetadataMap& metadata,
                                    hvArray_tag* target) const;

private:
    class MetadataToStructConverterImpl;
    std::unique_ptr<MetadataToStructConverterImpl> impl_;
};

}  // namespace appserialization
