#include "Quenda/DecimalText.h"

#include <iomanip>
#include <locale>
#include <sstream>

namespace quenda {

QString decimalText(double value, int decimals) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << std::fixed << std::setprecision(decimals) << value;
    return QString::fromStdString(text.str());
}

} // namespace quenda
