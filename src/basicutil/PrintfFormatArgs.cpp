// The interim renderer behind appendPrintf, until the printf engine replaces it.
#include "basicutil/PrintfFormatArgs.h"

#include "basicutil/DecimalText.h"

namespace basicutil {

namespace {

void appendHex(std::string& out, std::uint64_t v, bool upper) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    char buf[16];
    std::size_t n = 0;
    do {
        buf[n++] = digits[v & 15];
        v >>= 4;
    } while (v != 0);
    while (n > 0) out.push_back(buf[--n]);
}

void appendPadded(std::string& out, std::string_view body, std::size_t width, bool left, bool zeros) {
    const std::size_t pad = width > body.size() ? width - body.size() : 0;
    if (left) {
        out.append(body);
        out.append(pad, ' ');
    } else if (zeros && !body.empty() && body.front() == '-') {
        out.push_back('-');
        out.append(pad, '0');
        out.append(body.substr(1));
    } else {
        out.append(pad, zeros ? '0' : ' ');
        out.append(body);
    }
}

}  // namespace

void appendPrintf(std::string& out, std::string_view format, std::span<const PrintfArg> args) {
    std::size_t next = 0;
    std::size_t i = 0;
    while (i < format.size()) {
        if (format[i] != '%') {
            out.push_back(format[i++]);
            continue;
        }
        const std::size_t start = i++;
        bool left = false, zeros = false;
        for (; i < format.size() && (format[i] == '-' || format[i] == '0'); ++i)
            (format[i] == '-' ? left : zeros) = true;
        std::size_t width = 0;
        for (; i < format.size() && format[i] >= '0' && format[i] <= '9' && width < 100000; ++i)
            width = width * 10 + static_cast<std::size_t>(format[i] - '0');
        while (i < format.size() && std::string_view("hlzjt").find(format[i]) != std::string_view::npos) ++i;
        if (i == format.size()) {
            out.append(format.substr(start));
            break;
        }
        const char conversion = format[i++];
        if (conversion == '%') {
            out.push_back('%');
            continue;
        }
        const bool known = std::string_view("diuxXsc").find(conversion) != std::string_view::npos;
        if (!known || next == args.size()) {
            out.append(format.substr(start, i - start));
            continue;
        }
        const PrintfArg& arg = args[next++];
        std::string body;
        switch (conversion) {
            case 'd':
            case 'i':
                appendSigned(body, arg.asSigned());
                break;
            case 'u':
                appendUnsigned(body, arg.asUnsigned());
                break;
            case 'x':
            case 'X':
                appendHex(body, arg.asUnsigned(), conversion == 'X');
                break;
            case 'c':
                body.push_back(static_cast<char>(arg.asUnsigned()));
                break;
            default:
                body.append(arg.kind() == PrintfArg::ARG_STRING ? arg.asString() : "(?)");
                break;
        }
        appendPadded(out, body, width, left, zeros && conversion != 's' && conversion != 'c');
    }
}

}  // namespace basicutil
