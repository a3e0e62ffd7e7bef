#pragma once

#include <xercesc/framework/MemoryManager.hpp>
#include <xercesc/util/XercesDefs.hpp>

#include <cstddef>

namespace opc::xml {

// The memory of one parser, document or writer of Xerces. The destructor frees every block that is
// still allocated, because Xerces leaks when an allocation fails. For one thread at a time.
class XercesMemory final : public xercesc::MemoryManager {
public:
    XercesMemory() = default;
    XercesMemory(const XercesMemory&) = delete;
    XercesMemory& operator=(const XercesMemory&) = delete;
    ~XercesMemory() override;

    // Throws xercesc::OutOfMemoryException, as Xerces expects.
    void* allocate(XMLSize_t size) override;
    void deallocate(void* memory) override;
    // The memory of exceptions is not this one's, because an exception may outlive it.
    xercesc::MemoryManager* getExceptionMemoryManager() override;

private:
    // The link in front of every block. All blocks form a ring, whose head is `ring_`.
    struct alignas(std::max_align_t) Block {
        Block* next = this;
        Block* previous = this;
    };
    Block ring_;
};

}  // namespace opc::xml
