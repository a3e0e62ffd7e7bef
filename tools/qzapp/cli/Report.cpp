#include "tools/qzapp/cli/Report.hpp"

#include "app/Shown.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"

namespace qzapp {

void report(const std::string& message) {
    writeMessage("qzapp: " + visible(message) + "\n");
}

}  // namespace qzapp
