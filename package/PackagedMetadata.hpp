#pragma once

#include <appserialization/AppMetadata.hpp>
#include <appserialization/ustring.hpp>
#include <opc/XercesHelper.hpp>

#include <cstdint>
#include <vector>

#include "package/PackagedAppFile.hpp"

namespace appserialization {

// Metadata and screenshot of a packaged app file: the one parser of them, for both readers. Holds the
// package open; errors of the package library pass unchanged.
class PackagedMetadata : public PackagedAppFile {
public:
    // Opens the file of a validated name, or the one that another reader has opened as `file`. Throws
    // AppFileReaderGenericException when it has no app model.
    explicit PackagedMetadata(ustring fileName);
    PackagedMetadata(ustring fileName, const opc::zippackage::ZipPhysicalPackage& file);
    ~PackagedMetadata();

    AppMetadata getAppMetadata() const;
    // Appends to `bytes`; leaves both alone unless there is exactly one screenshot.
    void getAppScreenshot(std::vector<std::uint8_t>& bytes, ustring& format) const;

private:
    void readMetadataPart(AppMetadata& metadata) const;
    void readCoreProperties(AppMetadata& metadata) const;
    static void readStringElement(const xercesc::DOMElement* parent, ustring& value,
                                  const ustring& name);
    static void readStringArrayElement(const xercesc::DOMElement* parent,
                                       std::vector<ustring>& values, const ustring& listName,
                                       const ustring& itemName, const ustring& attributeName);

    opc::model::XercesGuard xercesGuard_;
};

}  // namespace appserialization
