// Loads and initialises Xerces and does nothing else: what a program pays that uses it at all.
#include <xercesc/util/PlatformUtils.hpp>

int main() {
    xercesc::XMLPlatformUtils::Initialize();
}
