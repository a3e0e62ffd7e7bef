#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>
#include <opc/XercesHelper.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include <cstdint>
#include <vector>

#include "package/PackagedAppFile.hpp"

namespace appserialization {

// Reads the metadata and the screenshot of a packaged app file, for KVPKGMetadataReader, which
// keeps one, and for AppFileReader, which makes one for each call. Keeps the package open. Errors
// of the package library (opc::Exception) pass unchanged.
class PackagedMetadata : public PackagedAppFile {
public:
    // Opens the file. The arguments are those of PackagedAppFile. Throws
    // AppFileReaderGenericException if the package has no app model.
    explicit PackagedMetadata(ustring fileName);
    PackagedMetadata(ustring fileName, const opc::zippackage::ZipPhysicalPackage& file);
    ~PackagedMetadata();

    // A record in which every field is present.
    AppMetadata getAppMetadata() const;
    // Appends the image to `bytes` and sets `format`; leaves both as they are unless the package
    // has exactly one relationship to a screenshot.
    void getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const;

private:
    void readMetadataPart(AppMetadata& metadata) const;
    void readCoreProperties(AppMetadata& metadata) const;
    static void readStringElement(const xercesc::DOMElement* parent, ustring& value,
                                  const ustring& name);
    static void readStringArrayElement(const xercesc::DOMElement* parent,
                                       std::vector<ustring>& values, const ustring& listName,
                                       const ustring& itemName, const ustring& attributeName);

    opc::model::XercesGuard xercesGuard_;  // for ParsedMetadata
};

}  // namespace appserialization
