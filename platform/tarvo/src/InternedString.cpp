#include <tarvo/InternedString.hpp>

#include <foundation/Immortal.hpp>

#include <functional>
#include <mutex>
#include <set>

namespace tarvo::internal {

InternedString makeInterned(std::string_view text) {
    static std::mutex mutex;
    // The nodes of a set never move, and none is erased, so pointers to them stay valid.
    static const foundation::Immortal<std::set<std::string, std::less<>>> pool;
    const std::lock_guard lock(mutex);
    auto found = pool->find(text);
    if (found == pool->end()) found = pool->emplace(text).first;
    return InternedString(*found);
}

}  // namespace tarvo::internal
