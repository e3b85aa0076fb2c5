#pragma once
// The mark of the one instance: a lock on a file of the user's, which the kernel takes back when
// its process ends, however that comes. It does not depend on a bus. Any thread.

#include <QString>

namespace quenda {

/// Takes the lock until this process ends. False where another process has it; true also where the
/// file cannot be made. Calling it again changes nothing.
bool takeInstanceLock();

/// Whether some process has the lock. Takes nothing.
bool instanceExists();

/// The file; its folder is the user's own.
QString instanceLockFile();

} // namespace quenda
