#pragma once
// Error values that can reach the user, and the result type of operations that can fail with one.
// Plain values; any thread.

#include <QString>

#include <optional>
#include <utility>
#include <variant>

namespace quenda {

/// An error with a readable description. The program's own errors have the domain "Quenda";
/// errors of the operating system or of a library keep their own domain and code.
struct Error {
    QString domain;
    int code = 0;
    QString localizedDescription;

    bool operator==(const Error &) const = default;
};

inline Error quendaError(int code, const QString &description) {
    return {QStringLiteral("Quenda"), code, description};
}

/// A value or the error that stood in its way.
template <typename T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_state(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : m_state(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }

    /// Only where ok(); otherwise throws std::bad_variant_access.
    const T &value() const & { return std::get<0>(m_state); }
    T &value() & { return std::get<0>(m_state); }
    T &&value() && { return std::get<0>(std::move(m_state)); }
    /// Only where not ok(); otherwise throws std::bad_variant_access.
    const Error &error() const { return std::get<1>(m_state); }

private:
    std::variant<T, Error> m_state;
};

/// A result that carries nothing on success: no value means that all went well.
using Failure = std::optional<Error>;

} // namespace quenda
