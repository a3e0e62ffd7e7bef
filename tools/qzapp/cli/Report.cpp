#include "tools/qzapp/cli/Report.hpp"

#include <string>

#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"

namespace qzapp {

void report(const std::string& message) {
    writeMessage("qzapp: " + visible(message) + "\n");
}

}  // namespace qzapp
