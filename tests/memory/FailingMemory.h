#pragma once

#include <functional>

/// The memory of the program that links this: `operator new`, which fails when it is told to.
namespace failing_memory {

/// Has the allocations from the `first` one (1 is the next) fail, `count` of them; only those for which
/// `concerns` answers true are counted.
void failFrom(long first, long count, std::function<bool()> concerns);
/// All is well again.
void recover();
/// Whether an allocation has failed since `failFrom`.
bool hasFailed();

}  // namespace failing_memory
