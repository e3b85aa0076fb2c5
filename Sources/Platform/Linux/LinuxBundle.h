#pragma once
// What the build says of the program, and where its resources lie. Main thread only.

#include "Platform/Desktop.h"

namespace quenda {

class LinuxBundle final : public Bundle {
public:
    std::optional<QString> shortVersion() const override;
    std::optional<QString> version() const override;
    std::optional<QString> identifier() const override;
    /// `share/quenda` beside the folder of the executable, whether it exists or not.
    std::optional<QString> resourceDirectory() const override;
};

} // namespace quenda
