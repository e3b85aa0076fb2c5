#pragma once
// X11 has no permission to ask for: whoever may connect may listen and type, if the server has the
// extensions for it. The focus is the window manager's active window; one of our own counts only
// while a field for text has the focus in it. Main thread only; each answer takes a few round trips
// to the X server.

#include "Platform/Accessibility.h"
#include "Platform/Linux/X11Connection.h"

#include <memory>

namespace quenda {

class X11Accessibility final : public Accessibility {
public:
    X11Accessibility();
    ~X11Accessibility() override;

    /// Whether the X server answers and has XInput 2.2 and XTest. There is no prompt.
    bool isTrusted(TrustPrompt prompt = TrustPrompt::Silent) const override;
    bool focusedElementExists() const override;

private:
    bool ready() const;

    mutable std::unique_ptr<X11Connection> m_connection;
    mutable bool m_capable = false; ///< of the present connection's server
};

} // namespace quenda
