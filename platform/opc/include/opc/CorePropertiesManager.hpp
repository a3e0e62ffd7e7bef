#pragma once

#include <foundation/Export.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/Package.hpp>

namespace opc::qzservices {

// Where the times in a package come from. Callers pass it on; there is only one mode.
enum class DeterministicMode : int { FromClock = 0 };

// Reads and replaces the core properties of an open package. They are in two parts, each found by
// its relationship: the one that the packaging standard defines, and the host's own for the other
// properties. Owns nothing. Use it from the package's thread.
class PLATFORM_API CorePropertiesManager {
public:
    // `package` must outlive the manager.
    CorePropertiesManager(model::Package& package, DeterministicMode mode);
    CorePropertiesManager(model::Package& package, int mode)
        : CorePropertiesManager(package, static_cast<DeterministicMode>(mode)) {}

    // Reads both parts. The properties of an absent part are absent. Throws opc::Exception if a
    // part breaks the rules of core properties, or if several relationships lead to core
    // properties.
    CoreProperties getCoreProperties() const;
    // Writes both parts, and creates those that are missing; the host's part is created only if it
    // has something to hold. The package is saved by Package::close(). Throws opc::Exception that
    // names the property and the position of a character that XML cannot hold, or if several
    // relationships lead to core properties; the package is then unchanged. Also throws as
    // requireRelatedPart() does, and the first part may have been written then.
    void setCoreProperties(const CoreProperties& properties);

private:
    model::Package* package_;
};

}  // namespace opc::qzservices
