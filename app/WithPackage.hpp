#pragma once

#include <opc/Package.hpp>
#include <opc/ZipPhysicalPackage.hpp>

#include "app/Error.hpp"
#include "app/FileName.hpp"

namespace qzapp {

// Opens the package for reading, calls `work` with it and returns the result. The package is gone
// when this function returns, so `work` may return a stream (which keeps the file open) but not a
// Part. All failures are Errors about the file.
template <class Work>
auto withPackage(const FileName& file, Work work) {
    return about(file, [&] {
        const opc::zippackage::ZipPhysicalPackage zip(file.path, true);
        opc::model::Package package(zip);
        package.open(opc::interfaces::OpenMode::Read);
        return work(package);
    });
}

}  // namespace qzapp
