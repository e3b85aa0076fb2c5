#pragma once
// The accessibility trust of this process, and the focused element. Main thread only.

#include "Platform/Accessibility.h"

namespace quenda::mac {

class MacAccessibility final : public Accessibility {
public:
    bool isTrusted(TrustPrompt prompt) const override;
    bool focusedElementExists() const override;
};

} // namespace quenda::mac
