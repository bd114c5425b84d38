#include "tests/memory/FailingMemory.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace failing_memory {

namespace {

bool watching = false;
bool asking = false;
bool failed = false;
long allocations = 0;
long firstToFail = 0;
long failures = 0;

std::function<bool()> &concernsNow() {
  static auto &function = *new std::function<bool()>;
  return function;
}

bool failsNow() {
  if (!watching || asking) return false;
  asking = true;
  const bool concerned = concernsNow()();
  asking = false;
  if (!concerned) return false;
  ++allocations;
  const bool fails = allocations >= firstToFail && allocations < firstToFail + failures;
  failed = failed || fails;
  return fails;
}

}  // namespace

void failFrom(long first, long count, std::function<bool()> concerns) {
  concernsNow() = std::move(concerns);
  allocations = 0;
  firstToFail = first;
  failures = count;
  failed = false;
  watching = true;
}

void recover() {
  watching = false;
}

bool hasFailed() {
  return failed;
}

}  // namespace failing_memory

void *operator new(std::size_t size) {
  void *const memory = failing_memory::failsNow() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void operator delete(void *memory) noexcept {
  std::free(memory);
}

void operator delete(void *memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
