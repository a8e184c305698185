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

// One argument: its kind and its value. Made implicitly from what a printf call is given.
class PrintfArg {
  public:
    // What the argument holds.
    enum Kind : std::uint8_t { ARG_SIGNED, ARG_UNSIGNED, ARG_DOUBLE, ARG_STRING, ARG_POINTER };

    // Any integer (signed or unsigned by its type), a double (a float too), a string (a null
    // C string reads "(null)"; the text must outlive the call) or a pointer.
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

    constexpr Kind kind() const noexcept { return _kind; }  // what it holds
    // An integer argument, read as signed or unsigned 64 bits.
    constexpr std::int64_t asSigned() const noexcept {
        return _kind == ARG_SIGNED ? _signed : static_cast<std::int64_t>(_unsigned);
    }
    constexpr std::uint64_t asUnsigned() const noexcept {
        return _kind == ARG_UNSIGNED ? _unsigned : static_cast<std::uint64_t>(_signed);
    }
    // The value of a double, string or pointer argument (only of that kind).
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
