#pragma once

#include "tools/collector/Database.h"
#include "tools/collector/RecordMemory.h"

namespace kx::collector {

/// Gives a database the tables "request" and "content", with the columns that they have in a file, which can
/// be read alone: SQLite finds the requests where they are in memory, without a copy of its own. The memory
/// has to outlive the database.
void addMemoryTables(Database &database, RecordMemory &memory);

}  // namespace kx::collector
