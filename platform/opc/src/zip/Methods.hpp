#pragma once

#include <opc/ZipArchive.hpp>

#include "platform/opc/src/zip/ItemInput.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace opc::zip {

// A way in which packages may hold the data of an item. Packages allow no others.
struct MethodRow {
    Method method;
    const char* name;  // for messages
    // Of the zip format, as our own records say it.
    std::uint16_t versionNeeded;
    // The most bytes of content that one byte of data can stand for.
    std::uint64_t worstRatio;
    // Whether the data themselves say where they end.
    bool endsItself;
    std::unique_ptr<InputStream> (*open)(ItemContent content);
};

// Null when packages do not allow the method.
const MethodRow* findMethod(Method method) noexcept;
// For a method that is allowed: items of any other one are refused before anybody asks this.
const MethodRow& rowOf(Method method) noexcept;

// The largest of all methods.
std::uint64_t worstRatio() noexcept;
// What is wrong with an item of a method that is not allowed: "is compressed by method 9; ...".
std::string methodFault(Method method);

}  // namespace opc::zip
