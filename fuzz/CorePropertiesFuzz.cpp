// Core properties: what was read from a document and written again reads back the same, and so do
// dates. AppEditFuzz sets them.

#include <opc/CoreProperties.hpp>
#include <opc/Exception.hpp>

#include <cstdint>
#include <optional>
#include <string>

#include <opc/HostProperties.hpp>
#include <opc/StandardProperties.hpp>

#include "fuzz/Fuzzing.hpp"
#include "platform/opc/src/package/W3CDate.hpp"

namespace {

using foundation::clock::Seconds;
using fuzz::require;
using opc::qzservices::CoreProperties;
using opc::qzservices::HostProperties;
using opc::qzservices::StandardProperties;

constexpr std::size_t kLongestDate = 64;
constexpr std::int64_t kFirstSecond = -62'167'219'200;  // of the year 0
constexpr std::int64_t kPastLastSecond = 253'402'300'800;

template <class Properties>
std::optional<CoreProperties> parse(std::string_view document) {
    return fuzz::attempt<opc::Exception>([&] {
        CoreProperties properties;
        Properties::parse(document, "file", properties);
        return properties;
    });
}

// Whether the calendar has this time. A time zone may move a date out of the years that can be
// written.
bool isWritable(Seconds time) {
    const auto seconds = time.time_since_epoch().count();
    return seconds >= kFirstSecond && seconds < kPastLastSecond;
}

template <class Properties>
void checkDocument(std::string_view document) {
    const auto properties = parse<Properties>(document);
    if (!properties) return;
    const auto modified = properties->getLastModifiedTime();
    const auto written =
        fuzz::attempt<opc::Exception>([&] { return Properties::toXml(*properties); });
    require(written.has_value() == (!modified || isWritable(*modified)),
            "what was read can be written");
    if (written) require(parse<Properties>(*written) == properties, "what is written reads back");
}

void checkDate(const std::string& text) {
    const auto date = opc::qzservices::parseW3CDate(text);
    if (!date || !isWritable(*date)) return;
    const std::string written = opc::qzservices::formatW3CDate(*date);
    require(opc::qzservices::parseW3CDate(written) == date, "a time reads back");
    // A date that does not exist would be read as another one.
    const bool isUtc = text.find('T') == text.npos || text.back() == 'Z';
    const std::string said = text.substr(0, text.find_first_of(".Z"));
    require(!isUtc || written.starts_with(said), "a date is the time that it says");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto text = fuzz::Input(data, size).rest();
    if (size <= kLongestDate && !text.starts_with('<')) checkDate(std::string(text));
    checkDocument<StandardProperties>(text);
    checkDocument<HostProperties>(text);
    return 0;
}
