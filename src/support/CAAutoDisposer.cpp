#include "support/CAAutoDisposer.h"

#include <cstdint>
#include <new>

void* CA_malloc(size_t inSize) {
  void* theBlock = std::malloc(inSize);
  // A null block for a size of 0 is no lack of memory.
  if (theBlock == nullptr && inSize != 0) throw std::bad_alloc();
  return theBlock;
}

void* CA_calloc(size_t inCount, size_t inSize) {
  if (inSize != 0 && inCount > SIZE_MAX / inSize) throw std::bad_alloc();
  void* theBlock = std::calloc(inCount, inSize);
  if (theBlock == nullptr && inCount * inSize != 0) throw std::bad_alloc();
  return theBlock;
}
