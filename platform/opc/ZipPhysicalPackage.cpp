#include <opc/ZipPhysicalPackage.hpp>

#include <utility>

namespace opc::zippackage {

ZipPhysicalPackage::ZipPhysicalPackage(foundation::ustring path, bool allowZip64)
    : path_(std::move(path)), allowZip64_(allowZip64) {}

ZipPhysicalPackage::ZipPhysicalPackage(const fl::filesystem::path& path, bool allowZip64)
    : path_(path), allowZip64_(allowZip64) {}

}  // namespace opc::zippackage
