#include "Fakes/FakeKeyTap.h"

#include <algorithm>

namespace quenda::fakes {

class FakeKeyTapFactory::Tap final : public KeyTap {
public:
    Tap(FakeKeyTapFactory &factory, Handler handler)
        : m_factory(factory),
          m_handler(std::move(handler)) {
        m_factory.m_taps.push_back(this);
    }
    ~Tap() override { std::erase(m_factory.m_taps, this); }

    bool isEnabled() const override { return enabled; }
    void setEnabled(bool wanted) override {
        if (wanted)
            ++m_factory.enableCalls;
        if (!(wanted && m_factory.enableRefused))
            enabled = wanted;
    }
    void deliver(const KeyEvent &event) { m_handler(event); }

    bool enabled = false;

private:
    FakeKeyTapFactory &m_factory;
    Handler m_handler;
};

std::unique_ptr<KeyTap> FakeKeyTapFactory::createTap(KeyTap::Handler handler) {
    if (refuse)
        return nullptr;
    ++created;
    return std::make_unique<Tap>(*this, std::move(handler));
}

bool FakeKeyTapFactory::newestEnabled() const {
    return !m_taps.empty() && m_taps.back()->enabled;
}

void FakeKeyTapFactory::send(const KeyEvent &event) {
    const bool notice = event.type == KeyEvent::Type::TapDisabledByTimeout ||
                        event.type == KeyEvent::Type::TapDisabledByUserInput;
    const std::vector<Tap *> taps = m_taps;
    for (Tap *tap : taps) {
        if (notice)
            tap->enabled = false;
        if (notice || tap->enabled)
            tap->deliver(event);
    }
}

void FakeKeyTapFactory::flagsChanged(int keyCode, std::uint64_t flags) {
    send({KeyEvent::Type::FlagsChanged, keyCode, flags});
}

void FakeKeyTapFactory::keyDown(int keyCode, std::uint64_t flags) {
    send({KeyEvent::Type::KeyDown, keyCode, flags});
}

void FakeKeyTapFactory::disableSilently() {
    for (Tap *tap : m_taps)
        tap->enabled = false;
}

} // namespace quenda::fakes
