#pragma once

#include <appserialization/Exceptions.hpp>
#include <foundation/Exceptions.hpp>
#include <messages/HostError.hpp>
#include <messages/LumenforgeMessages.hpp>

#include <new>

namespace appserialization::host {

// Every call from the host language goes through this function: it returns what `call` returns, and
// throws messages::HostError for whatever `call` throws, out of memory included. The exceptions of
// the readers carry their file name. For any other one, `fileName` is called to get the name for
// "LoadFailed".
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

// Runs `define`, which makes the description of a class or its methods. Throws
// foundation::core::except::BadAlloc, by which the host knows its own structures, for a
// std::bad_alloc; everything else passes.
template <class Define>
void withHostBadAlloc(Define define) {
    try {
        define();
    } catch (const std::bad_alloc&) {
        throw foundation::core::except::BadAlloc();
    }
}

}  // namespace appserialization::host
