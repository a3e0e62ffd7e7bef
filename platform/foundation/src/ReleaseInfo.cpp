#include <foundation/ReleaseInfo.hpp>

#include <utility>

namespace foundation::release_info {

ReleaseInfo ReleaseInfo::current() {
    return {u"" QZ_KORVAL_RELEASE, false};
}

ReleaseInfo ReleaseInfo::makeLegacy(ustring release) {
    return {std::move(release), true};
}

ustring ReleaseInfo::toString() const {
    return legacy ? release + u" (legacy)" : release;
}

}  // namespace foundation::release_info
