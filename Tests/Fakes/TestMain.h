#pragma once
// What the unit tests share: a home of their own for files, and strictness about warnings.

#include <QString>

namespace quenda::fakes {

/// An empty folder below which this test keeps its application data and logs; each test gets a
/// fresh one, already installed as Folders::current().
QString testHome();

/// A warning whose text contains `part` is expected during the present test and does not fail it.
void expectWarning(const QString &part);

} // namespace quenda::fakes
