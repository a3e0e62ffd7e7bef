#pragma once

#include <opc/CorePropertiesManager.hpp>
#include <opc/Package.hpp>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace test_support {

// Everything that a package holds, for comparing.
struct PackageContents {
    std::map<std::u16string, std::string> parts;                           // name, bytes
    std::map<std::u16string, std::u16string> contentTypes;                 // of parts, by name
    std::vector<std::pair<std::u16string, std::u16string>> relationships;  // type, target
    opc::qzservices::CoreProperties properties;

    explicit PackageContents(const std::u16string& file) {
        const opc::zippackage::ZipPhysicalPackage zip(file, true);
        opc::model::Package package(zip);
        package.open(0);
        for (const auto& part : package.getParts()) {
            const auto bytes = readAll(part, 1 << 24);
            parts[part.getName().toString()].assign(bytes.begin(), bytes.end());
            contentTypes[part.getName().toString()] = part.getContentType().toString();
        }
        for (const auto& each : package.getRelationships()) {
            relationships.emplace_back(each.getType(), each.getTargetURI().toString());
        }
        properties = opc::qzservices::CorePropertiesManager(package, 0).getCoreProperties();
    }

    std::vector<std::u16string> targets(const std::u16string& type) const {
        std::vector<std::u16string> found;
        for (const auto& [each, target] : relationships) {
            if (each == type) found.push_back(target);
        }
        return found;
    }
};

}  // namespace test_support
