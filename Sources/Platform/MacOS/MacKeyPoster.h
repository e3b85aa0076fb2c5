#pragma once
// Posts Command-V at the HID event tap. Main thread only.

#include "Platform/KeyPoster.h"

namespace quenda::mac {

class MacKeyPoster final : public KeyPoster {
public:
    PostOutcome postPaste() override;
};

} // namespace quenda::mac
