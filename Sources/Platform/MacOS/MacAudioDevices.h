#pragma once
// The default input device: its name, and the news that it is another one. Main thread only.

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quenda::mac {

/// UTF-8; none where there is no input device or it has no name.
std::optional<std::string> defaultInputDeviceName();

/// Calls a handler on the main queue at each change of the default input device while it lives.
class DefaultInputListener {
public:
    explicit DefaultInputListener(std::function<void()> handler);
    DefaultInputListener(const DefaultInputListener &) = delete;
    DefaultInputListener &operator=(const DefaultInputListener &) = delete;
    ~DefaultInputListener();

private:
    struct State;
    std::shared_ptr<State> m_state;
};

} // namespace quenda::mac
