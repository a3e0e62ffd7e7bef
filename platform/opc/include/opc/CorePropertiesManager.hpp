#pragma once

#include <foundation/Export.hpp>
#include <opc/CoreProperties.hpp>
#include <opc/Package.hpp>

namespace opc::qzservices {

// Where the times in a package come from.
enum class DeterministicMode : int { FromClock = 0 };

// Reads and replaces the core properties of an open package: the standard's part, found by its
// relationship, and the host's own part beside it.
class PLATFORM_API CorePropertiesManager {
public:
    // `package` must outlive the manager.
    CorePropertiesManager(model::Package& package, DeterministicMode mode);
    CorePropertiesManager(model::Package& package, int mode)
        : CorePropertiesManager(package, static_cast<DeterministicMode>(mode)) {}

    // Absent parts give absent properties. Throws opc::Exception when a part breaks the rules of
    // core properties.
    CoreProperties getCoreProperties() const;
    // Throws opc::Exception, naming the property and the position, for text that XML cannot hold;
    // the package is then unchanged.
    void setCoreProperties(const CoreProperties& properties);

private:
    model::Package* package_;
};

}  // namespace opc::qzservices
