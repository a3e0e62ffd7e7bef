#include <opc/CoreProperties.hpp>

namespace opc::qzservices {

using foundation::release_info::ReleaseInfo;

ustring CoreProperties::getCurrentKORVALRelease() {
    return ReleaseInfo::current().release;
}

ReleaseInfo CoreProperties::getCurrentKORVALReleaseInfo() {
    return ReleaseInfo::current();
}

ReleaseInfo CoreProperties::makeLegacyKORVALReleaseInfo(const ustring& release) {
    return ReleaseInfo::makeLegacy(release);
}

foundation::clock::Seconds CoreProperties::getCurrentTime() {
    return foundation::clock::now();
}

}  // namespace opc::qzservices
