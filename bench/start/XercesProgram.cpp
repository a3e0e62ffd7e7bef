// Loads and initialises Xerces and does nothing else. This is the least that a program with Xerces
// costs.
#include <xercesc/util/PlatformUtils.hpp>

int main() {
    xercesc::XMLPlatformUtils::Initialize();
}
