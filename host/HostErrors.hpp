#pragma once

#include <appserialization/Exceptions.hpp>
#include <foundation/Exceptions.hpp>
#include <messages/HostError.hpp>
#include <messages/LumenforgeMessages.hpp>

#include <new>

namespace appserialization::host {

// The one way from native code into the host language: returns what `call` returns, and turns any
// failure into the host error that stands for it. A failure that is none of the readers' own is
// "LoadFailed" for the file that `fileName`, asked only then, returns.
template <class Call, class FileName>
auto withHostErrors(FileName fileName, Call call) -> decltype(call()) {
    try {
        return call();
    } catch (const AppFileReaderExceptionBase& failure) {
        except::throwToKorval(failure);
    } catch (...) {
        hvErrMsgId(KORVAL::lumenforge::lumenforge::LoadFailed(fileName()));
    }
}

// Runs `define`, which builds the description of a class or a method, and throws an allocation
// failure as the host's own.
template <class Define>
void withHostBadAlloc(Define define) {
    try {
        define();
    } catch (const std::bad_alloc&) {
        throw foundation::core::except::BadAlloc();
    }
}

}  // namespace appserialization::host
