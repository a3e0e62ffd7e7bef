#include "tools/qzapp/cli/Report.hpp"

#include <exception>
#include <functional>
#include <new>
#include <string>

#include "app/VisibleText.hpp"
#include "tools/qzapp/cli/ErrorStream.hpp"

namespace qzapp {

void report(const std::string& message) {
    writeMessage("qzapp: " + visible(message) + "\n");
}

int runOrTrouble(const std::function<int()>& verb) {
    try {
        return verb();
    } catch (const std::bad_alloc&) {
        report("there is not enough memory");
    } catch (const std::exception& e) {
        report(e.what());
    }
    return kTrouble;
}

}  // namespace qzapp
