#include <foundation/ustring.hpp>

#include <string>

#include "app/DoubtfulValues.hpp"
#include "app/FieldValues.hpp"
#include "app/check/Checks.hpp"
#include "app/check/Findings.hpp"

namespace qzapp {
namespace {

RuleName ruleOf(Field field) {
    switch (field) {
        case Field::ScreenshotMode:
            return "mode-value";
        case Field::KVPKGVersion:
            return "version-value";
        case Field::Uuid:
            return "uuid-value";
        default:
            return "release-value";
    }
}

}  // namespace

void checkValue(Field field, const foundation::ustring& value, const std::string& fix,
                Findings& findings) {
    if (const auto doubt = doubtAbout(field, value)) findings.add(ruleOf(field), "", *doubt, fix);
}

}  // namespace qzapp
