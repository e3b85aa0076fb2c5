#pragma once
// The session's listen-only event tap, served on the main run loop. Main thread only.

#include "Platform/KeyTap.h"

namespace quenda::mac {

class MacKeyTapFactory final : public KeyTapFactory {
public:
    /// Null where the system refuses the tap: accessibility or input-monitoring is not granted.
    std::unique_ptr<KeyTap> createTap(KeyTap::Handler handler) override;
    KeyReach reach() const override { return KeyReach::Everywhere; }
};

} // namespace quenda::mac
