#pragma once
// What the build says of the program, and where its resources lie. Main thread only.

#include "Platform/Desktop.h"

namespace quenda {

class LinuxBundle final : public Bundle {
public:
    std::optional<QString> shortVersion() const override;
    std::optional<QString> version() const override;
    std::optional<QString> identifier() const override;
    /// `lib/quenda` beside the folder of the executable (the build can choose another), whether it
    /// exists or not. Not below `share`, where no programs belong: the engine lies in its `bin`.
    std::optional<QString> resourceDirectory() const override;
};

} // namespace quenda
