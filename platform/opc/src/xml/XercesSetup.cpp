#include "platform/opc/src/xml/XercesSetup.hpp"

#include <pthread.h>
#include <opc/Exception.hpp>

#include <foundation/Immortal.hpp>

#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PanicHandler.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>
#include <xercesc/util/XercesDefs.hpp>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <new>

namespace opc::xml {

namespace {

// While it is initialised, Xerces takes 0.7 MiB in some 3,800 pieces. If one of these allocations
// fails, the process ends, or Xerces believes that it is initialised and is not. So all of the
// memory is allocated before Xerces begins.
constexpr std::size_t kReserve = std::size_t{1} << 20;
// More than what the libraries below Xerces take meanwhile.
constexpr std::size_t kHeadroom = std::size_t{64} << 10;
constexpr std::size_t kAlignment = alignof(std::max_align_t);

// The memory of Xerces itself; documents and writers have their own. Until close(), allocations are
// pieces of the reserve, which are never reused: nearly all of them live as long as Xerces.
class SetupMemory final : public xercesc::MemoryManager {
public:
    SetupMemory() : reserve_(new std::byte[kReserve]) {}

    void close() { isOpen_ = false; }

    void* allocate(XMLSize_t size) override {
        const std::size_t rounded = (size + kAlignment - 1) / kAlignment * kAlignment;
        if (isOpen_ && rounded >= size && rounded <= kReserve - used_) {
            return reserve_.get() + (used_ += rounded) - rounded;
        }
        void* const memory = std::malloc(size);
        if (memory == nullptr) throw xercesc::OutOfMemoryException();
        return memory;
    }
    void deallocate(void* memory) override {
        const auto* const byte = static_cast<std::byte*>(memory);
        if (!std::less<>()(byte, reserve_.get()) &&
            std::less<>()(byte, reserve_.get() + kReserve)) {
            return;
        }
        std::free(memory);
    }
    xercesc::MemoryManager* getExceptionMemoryManager() override { return this; }

private:
    std::unique_ptr<std::byte[]> reserve_;
    std::size_t used_ = 0;
    bool isOpen_ = true;
};

[[noreturn]] void throwUnusable() {
    try {
        throw std::bad_alloc();
    } catch (const std::bad_alloc&) {
        std::throw_with_nested(Exception(
            "the XML library could not be set up for lack of memory; start the program again"));
    }
}

// Xerces' own handler would end the process.
class ThrowingPanicHandler final : public xercesc::PanicHandler {
public:
    void panic(PanicReasons) override { throwUnusable(); }
};

// Returns whether it worked. There is no second try, because Xerces believes that the first was
// good.
bool initialize(SetupMemory& memory, ThrowingPanicHandler& panics) {
    try {
        xercesc::XMLPlatformUtils::Initialize(xercesc::XMLUni::fgXercescDefaultLocale, nullptr,
                                              &panics, &memory);
    } catch (...) {
        return false;
    }
    memory.close();
    return true;
}

enum class State { Untried, Usable, Unusable };

constinit std::mutex mutex;
constinit std::atomic<State> state = State::Untried;

void setUp() {
    // Another thread may be at it when one forks; the child waits for it here, and not for ever.
    [[maybe_unused]] static const int registered =
        ::pthread_atfork([] { mutex.lock(); }, [] { mutex.unlock(); }, [] { mutex.unlock(); });
    const std::lock_guard lock(mutex);
    if (state != State::Untried) return;
    // These allocations may fail, so they come before Xerces begins.
    static const foundation::Immortal<SetupMemory> memory;
    static const foundation::Immortal<ThrowingPanicHandler> panics;
    // Freed again at once, so that the libraries below Xerces find as much memory.
    ::operator delete(::operator new(kHeadroom));
    state = initialize(*memory, *panics) ? State::Usable : State::Unusable;
}

}  // namespace

// A mutex and not std::call_once: an exception that passes through call_once makes the C library
// load another library, which ends the process if there is no memory.
void setUpXerces() {
    if (state == State::Untried) setUp();
    if (state == State::Unusable) throwUnusable();
}

}  // namespace opc::xml
