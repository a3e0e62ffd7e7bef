#pragma once

#include <appserialization/KAppMetadataReader.hpp>
#include <tarvo/TarvoMethod.hpp>
#include <tarvo/Wrappable.hpp>

#include <memory>

namespace appserialization {

// The native object behind one host object of class KAppMetadataReader.
class KAppMetadataReaderTarvoAdapter final : public tarvo::factory::full::Wrappable {
public:
    KAppMetadataReaderTarvoAdapter();
    ~KAppMetadataReaderTarvoAdapter() override;

    // The constructor that host code calls: opens the text app file. Failures are host errors, here
    // and in readMetadata(). Called once, before anything else.
    void construct(const ustring& fileName);

    // A 1-by-1 struct with the fields of the metadata record.
    tarvo::factory::hvArrayProxy readMetadata() const;

    const KAppMetadataReader& reader() const noexcept { return *reader_; }

private:
    std::unique_ptr<KAppMetadataReader> reader_;
};

}  // namespace appserialization
