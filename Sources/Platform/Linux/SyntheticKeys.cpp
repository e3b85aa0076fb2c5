#include "Platform/Linux/SyntheticKeys.h"

namespace quenda {

bool OwnStrokes::claim(std::uint8_t keyCode, bool press) {
    std::uint8_t &count = m_counts[index(keyCode, press)];
    if (count == 0)
        return false;
    --count;
    return true;
}

void SyntheticKeys::announce(std::uint8_t keyCode, bool press) {
    ++m_generation;
    for (Listener *listener : m_listeners)
        listener->ownStrokes.expect(keyCode, press);
}

void SyntheticKeys::finish() {
    for (Listener *listener : m_listeners) {
        listener->readArrivedEvents();
        listener->ownStrokes.clear();
    }
}

} // namespace quenda
