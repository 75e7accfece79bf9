// The writing core's in-memory central directory: finished central headers
// kept back to back in page-sized blocks, so a large archive never needs one
// big buffer reallocated. Blocks are only ever appended, never edited.
#include "zip/zip_archive.h"

#include <cstring>
#include <new>

namespace kxzef {

static_assert(sizeof(CentralDirectoryBlock) == 4112, "a block is one 4 KB page less its header");

namespace {

CentralDirectoryBlock* newBlock() {
  auto* block = new (std::nothrow) CentralDirectoryBlock;
  if (block == nullptr) return nullptr;
  block->next = nullptr;
  block->available = CentralBlockCapacity;
  block->filled = 0;
  block->reserved = 0;
  return block;
}

// Links a fresh block after the last one; false when memory ran out.
bool addBlock(CentralDirectory& list) {
  CentralDirectoryBlock* block = newBlock();
  if (block == nullptr) return false;
  if (list.last == nullptr) {
    list.first = block;
  } else {
    list.last->next = block;
  }
  list.last = block;
  return true;
}

}  // namespace

CentralDirectory::~CentralDirectory() { clear(); }

void CentralDirectory::clear() {
  while (first != nullptr) {
    CentralDirectoryBlock* next = first->next;
    delete first;
    first = next;
  }
  last = nullptr;
}

int appendToCentralDirectory(CentralDirectory* list, const void* bytes, uint64_t length) {
  if (list == nullptr) return StatusInternalError;
  if (list->last == nullptr && !addBlock(*list)) return StatusInternalError;
  const auto* source = static_cast<const unsigned char*>(bytes);
  while (length > 0) {
    if (list->last->available == 0 && !addBlock(*list)) return StatusInternalError;
    CentralDirectoryBlock& block = *list->last;
    const uint64_t piece = length < block.available ? length : block.available;
    std::memcpy(block.data + block.filled, source, piece);
    block.filled += piece;
    block.available -= piece;
    source += piece;
    length -= piece;
  }
  return StatusOk;
}

}  // namespace kxzef
