#pragma once

#include <opc/Streams.hpp>
#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ItemInput.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace opc::zip {

// What there is to know about a compression method that packages allow: stored or deflated. All
// that depends on the method is asked for here.
struct MethodRow {
    Method method;
    const char* name;  // for messages
    // The version of the zip format that a reader needs, as the records that we write say it.
    std::uint16_t versionNeeded;
    // The most bytes of content that one byte of data can stand for.
    std::uint64_t worstRatio;
    // Whether the data itself shows where it ends.
    bool endsItself;
    // Opens the content of an item for reading, as openItem() describes it.
    std::unique_ptr<InputStream> (*open)(ItemContent content);
};

// The row of `method`, or null if packages do not allow it.
const MethodRow* findMethod(Method method) noexcept;
// The row of a method that packages allow, as those of all items of an open archive are.
const MethodRow& rowOf(Method method) noexcept;

// The largest `worstRatio` of all methods: no item is larger than so many times its data.
std::uint64_t worstRatio() noexcept;
// What a message says about an item whose method is not allowed: "is compressed by method 9;
// packages allow only 0 (stored) and 8 (deflated)".
std::string methodFault(Method method);

}  // namespace opc::zip
