#pragma once

/// How often this thread has asked for memory so far, by whatever function.
long allocations();
