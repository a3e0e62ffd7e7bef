#pragma once

#include <xercesc/framework/MemoryManager.hpp>

#include <cstddef>

namespace opc::xml {

// The memory of one parser, document or writer. Whatever its user leaves behind, as Xerces does when
// an allocation fails, goes with it.
class XercesMemory final : public xercesc::MemoryManager {
public:
    XercesMemory() = default;
    XercesMemory(const XercesMemory&) = delete;
    XercesMemory& operator=(const XercesMemory&) = delete;
    ~XercesMemory() override;

    void* allocate(XMLSize_t size) override;
    void deallocate(void* memory) override;
    xercesc::MemoryManager* getExceptionMemoryManager() override;

private:
    // In front of every block, and the head of the ring that holds them all.
    struct alignas(std::max_align_t) Block {
        Block* next = this;
        Block* previous = this;
    };
    Block ring_;
};

}  // namespace opc::xml
