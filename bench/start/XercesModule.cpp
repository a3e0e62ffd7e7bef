#include <xercesc/util/PlatformUtils.hpp>

extern "C" __attribute__((visibility("default"))) void run(const char*) {
    xercesc::XMLPlatformUtils::Initialize();
}
