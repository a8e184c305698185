// Arguments of printf-style calls (PrintfFormat.h), carried with their types so that no
// formatter reads a va_list. Integers of any size, doubles, strings and pointers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace basicutil {

class PrintfArg {
  public:
    enum Kind : std::uint8_t { ARG_SIGNED, ARG_UNSIGNED, ARG_DOUBLE, ARG_STRING, ARG_POINTER };

    template <typename T>
    requires std::is_integral_v<T>
    constexpr PrintfArg(T v) noexcept {  // implicit on purpose, like a printf argument
        if constexpr (std::is_signed_v<T>) {
            _kind = ARG_SIGNED;
            _signed = v;
        } else {
            _kind = ARG_UNSIGNED;
            _unsigned = v;
        }
    }
    constexpr PrintfArg(double v) noexcept : _kind(ARG_DOUBLE), _double(v) {}
    constexpr PrintfArg(const char* s) noexcept : _kind(ARG_STRING), _string(s != nullptr ? s : "(null)") {}
    PrintfArg(const std::string& s) noexcept : _kind(ARG_STRING), _string(s) {}
    constexpr PrintfArg(std::string_view s) noexcept : _kind(ARG_STRING), _string(s) {}
    constexpr PrintfArg(const void* p) noexcept : _kind(ARG_POINTER), _pointer(p) {}

    constexpr Kind kind() const noexcept { return _kind; }
    constexpr std::int64_t asSigned() const noexcept {
        return _kind == ARG_SIGNED ? _signed : static_cast<std::int64_t>(_unsigned);
    }
    constexpr std::uint64_t asUnsigned() const noexcept {
        return _kind == ARG_UNSIGNED ? _unsigned : static_cast<std::uint64_t>(_signed);
    }
    constexpr double asDouble() const noexcept { return _double; }
    constexpr std::string_view asString() const noexcept { return _string; }
    constexpr const void* asPointer() const noexcept { return _pointer; }

  private:
    Kind _kind;
    union {
        std::int64_t _signed;
        std::uint64_t _unsigned;
        double _double;
        const void* _pointer;
    };
    std::string_view _string;
};

}  // namespace basicutil
