#pragma once

#include <tarvo/COSClassInfo.hpp>
#include <tarvo/Wrappable.hpp>

#include <type_traits>

namespace tarvo::factory {

// Describes a handle class whose objects are native objects of class `Native`. With `Abstract` no
// object of it can be constructed; its methods can still be called.
template <class Native, bool Abstract>
class HandleClassInfo : public COSClassInfo {
    static_assert(std::is_base_of_v<full::Wrappable, Native>);

public:
    using COSClassInfo::COSClassInfo;

    bool isHandle() const override { return true; }
    bool isAbstract() const override { return Abstract; }
};

}  // namespace tarvo::factory
