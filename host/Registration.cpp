#include "host/Registration.hpp"

#include <tarvo/InternedString.hpp>
#include <tarvo/Namespace.hpp>

#include <memory>

#include "host/CosKAppMetadataReader.hpp"
#include "host/HostErrors.hpp"

namespace appserialization::registration {

namespace {

void defineNamespace(tarvo::factory::TarvoNamespace& toDefine) {
    host::withHostBadAlloc([&] {
        toDefine.addClass(std::make_unique<CosKAppMetadataReader>(
            tarvo::internal::makeInterned("KAppMetadataReader"),
            "Used to read metadata and screenshots from KAPP files"));
    });
}

}  // namespace

void initializeKAppMetadataReaderTARVONamespace() {
    tarvo::factory::registerTarvoNamespace("lumenforge.internal.serialization", defineNamespace);
}

}  // namespace appserialization::registration
