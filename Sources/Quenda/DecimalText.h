#pragma once
// Numbers as they stand in texts for people and in the log. Plain values; any thread.

#include <QString>

namespace quenda {

/// `value` with that many decimals, as C's "%.*f" writes it: a point in every language, and of two
/// equally near texts the one with the even last digit, where QString::number rounds up.
QString decimalText(double value, int decimals);

} // namespace quenda
