#pragma once

#include <appserialization/KAppMetadataReader.hpp>
#include <appserialization/ustring.hpp>
#include <tarvo/BindingRegistry.hpp>
#include <tarvo/Wrappable.hpp>

#include <memory>

namespace appserialization {

// The native object of one host object of class KAppMetadataReader; it owns the reader. The class
// system makes it, calls construct() once before anything else, and owns it. All failures are
// messages::HostError, except those of memory around these calls.
class KAppMetadataReaderTarvoAdapter final : public tarvo::factory::full::Wrappable {
public:
    KAppMetadataReaderTarvoAdapter();
    ~KAppMetadataReaderTarvoAdapter() override;

    // The constructor that host code calls: reads the text app file `fileName`.
    void construct(const ustring& fileName);

    // The method that host code calls: returns a 1-by-1 struct with all fields of the metadata,
    // named as in appmetadata::kFieldNames.
    tarvo::factory::hvArrayProxy readMetadata() const;

    // Only after construct().
    const KAppMetadataReader& reader() const noexcept { return *reader_; }

private:
    std::unique_ptr<KAppMetadataReader> reader_;
};

}  // namespace appserialization
