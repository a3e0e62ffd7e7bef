#pragma once

#include <tarvo/COSClassInfo.hpp>
#include <tarvo/Wrappable.hpp>

#include <type_traits>

namespace tarvo::factory {

// Describes a handle class whose objects are backed by `Native`. An abstract class has methods but no
// objects of its own.
template <class Native, bool Abstract>
class HandleClassInfo : public COSClassInfo {
    static_assert(std::is_base_of_v<full::Wrappable, Native>);

public:
    using COSClassInfo::COSClassInfo;

    bool isHandle() const override { return true; }
    bool isAbstract() const override { return Abstract; }
};

}  // namespace tarvo::factory
