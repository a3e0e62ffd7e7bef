#include "platform/opc/src/xml/XercesMemory.hpp"

#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace opc::xml {

XercesMemory::~XercesMemory() {
    for (Block* block = ring_.next; block != &ring_;) {
        Block* const next = block->next;
        std::free(block);
        block = next;
    }
}

void* XercesMemory::allocate(XMLSize_t size) {
    void* const memory =
        size > SIZE_MAX - sizeof(Block) ? nullptr : std::malloc(sizeof(Block) + size);
    if (memory == nullptr) throw xercesc::OutOfMemoryException();
    auto* const block = ::new (memory) Block;
    block->next = ring_.next;
    block->previous = &ring_;
    ring_.next->previous = block;
    ring_.next = block;
    return block + 1;
}

void XercesMemory::deallocate(void* memory) {
    if (memory == nullptr) return;
    Block* const block = static_cast<Block*>(memory) - 1;
    block->previous->next = block->next;
    block->next->previous = block->previous;
    std::free(block);
}

xercesc::MemoryManager* XercesMemory::getExceptionMemoryManager() {
    return xercesc::XMLPlatformUtils::fgMemoryManager->getExceptionMemoryManager();
}

}  // namespace opc::xml
