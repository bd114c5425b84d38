#include "benchmarks/Allocations.h"

#include <cstddef>

namespace {

thread_local long count = 0;

}  // namespace

long allocations() {
  return count;
}

// In the place of the C library's, which do the work under these names.
extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t number, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void *__libc_memalign(std::size_t boundary, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

__attribute__((visibility("default"))) void *malloc(std::size_t size) {
  ++count;
  return __libc_malloc(size);
}

__attribute__((visibility("default"))) void *calloc(std::size_t number, std::size_t size) {
  ++count;
  return __libc_calloc(number, size);
}

__attribute__((visibility("default"))) void *realloc(void *block, std::size_t size) {
  ++count;
  return __libc_realloc(block, size);
}

__attribute__((visibility("default"))) void *aligned_alloc(std::size_t boundary, std::size_t size) {
  ++count;
  return __libc_memalign(boundary, size);
}
}
