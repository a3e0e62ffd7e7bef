#include "platform/opc/src/xml/XercesSetup.hpp"

#include <opc/Exception.hpp>

#include <foundation/Immortal.hpp>

#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PanicHandler.hpp>
#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <new>

namespace opc::xml {

namespace {

// Xerces takes 0.7 MiB in some 3,800 pieces while it is set up. If one of them fails, the process ends,
// or Xerces believes itself to be set up and is not. So all of it is there before it begins.
constexpr std::size_t kReserve = std::size_t{1} << 20;
// What the libraries below Xerces take meanwhile, and some more.
constexpr std::size_t kHeadroom = std::size_t{64} << 10;
constexpr std::size_t kAlignment = alignof(std::max_align_t);

// The memory of Xerces itself; documents and writers have their own. Pieces of the reserve are handed
// out until it is closed, and never taken back: nearly all of them live as long as Xerces.
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
    throw Exception(
        "the XML library could not be set up for lack of memory; start the program again");
}

// Left to itself, Xerces would end the process.
class ThrowingPanicHandler final : public xercesc::PanicHandler {
public:
    void panic(PanicReasons) override { throwUnusable(); }
};

// Whether it worked: there is no second try, since Xerces believes that the first was good.
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

}  // namespace

// Not std::call_once: an exception that passes through it makes the C library load another, and that
// ends the process when there is no memory.
void setUpXerces() {
    enum class State { Untried, Usable, Unusable };
    static std::mutex mutex;
    static State state = State::Untried;
    const std::lock_guard lock(mutex);
    if (state == State::Untried) {
        // Before Xerces begins: these may fail.
        static const foundation::Immortal<SetupMemory> memory;
        static const foundation::Immortal<ThrowingPanicHandler> panics;
        // Free again at once, for the libraries below to find it.
        ::operator delete(::operator new(kHeadroom));
        state = initialize(*memory, *panics) ? State::Usable : State::Unusable;
    }
    if (state == State::Unusable) throwUnusable();
}

}  // namespace opc::xml
