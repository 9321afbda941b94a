#pragma once

#include <utility>
#include <variant>

namespace ambrel {

// Wraps the failure half of an Expected so that a value and an error of the same type
// cannot be confused at construction.
template <typename E> struct Unexpected { E error; };

template <typename E> Unexpected<E> unexpected(E error) {
    return Unexpected<E>{std::move(error)};
}

// A value or the reason there is none. Failures are values in this program: nothing
// throws across our own code, and every caller must look at the outcome.
template <typename T, typename E> class [[nodiscard]] Expected {
public:
    Expected(T value) : m_storage(std::in_place_index<0>, std::move(value)) {}
    Expected(Unexpected<E> failure) : m_storage(std::in_place_index<1>, std::move(failure.error)) {}

    bool hasValue() const { return m_storage.index() == 0; }
    explicit operator bool() const { return hasValue(); }

    // Precondition: hasValue().
    const T& value() const& { return std::get<0>(m_storage); }
    T& value() & { return std::get<0>(m_storage); }
    T&& value() && { return std::get<0>(std::move(m_storage)); }

    // Precondition: !hasValue().
    const E& error() const& { return std::get<1>(m_storage); }
    E& error() & { return std::get<1>(m_storage); }

private:
    std::variant<T, E> m_storage;
};

} // namespace ambrel
