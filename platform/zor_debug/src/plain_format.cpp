#include "plain_format.h"

#include <sys/types.h>

namespace zor_debug {
namespace {

enum class Kind {
    Character,
    Percent,
    Int,
    Unsigned,
    Long,
    UnsignedLong,
    LongLong,
    UnsignedLongLong,
    Size,
    SignedSize,
    Hexadecimal,
    Other
};

struct Directive {
    Kind kind = Kind::Other;
    bool isUpperCase = false;
    std::size_t width = 1;
};

Kind integer(char conversion, Kind signedKind, Kind unsignedKind) {
    if (conversion == 'd' || conversion == 'i') return signedKind;
    return conversion == 'u' ? unsignedKind : Kind::Other;
}

// Reads what stands behind the '%', and leaves @p pp_next behind it, but for one of another kind.
Directive read(const char** pp_next) {
    Directive directive;
    char next = *(*pp_next)++;
    if (next == 'c') {
        directive.kind = Kind::Character;
    } else if (next == '%') {
        directive.kind = Kind::Percent;
    } else if (next == 'z') {
        directive.kind = integer(*(*pp_next)++, Kind::SignedSize, Kind::Size);
    } else if (next == 'l' && **pp_next == 'l') {
        directive.kind = integer(*++*pp_next, Kind::LongLong, Kind::UnsignedLongLong);
        ++*pp_next;
    } else if (next == 'l') {
        directive.kind = integer(*(*pp_next)++, Kind::Long, Kind::UnsignedLong);
    } else {
        if (next == '0' && **pp_next >= '1' && **pp_next <= '9') {
            directive.width = static_cast<std::size_t>(**pp_next - '0');
            next = *++*pp_next;
            ++*pp_next;
            if (next != 'x' && next != 'X') return directive;
        }
        directive.isUpperCase = next == 'X';
        directive.kind = next == 'x' || next == 'X' ? Kind::Hexadecimal
                                                    : integer(next, Kind::Int, Kind::Unsigned);
    }
    return directive;
}

}  // namespace

bool formatPlainly(Appender* p_out, const char* p_format, va_list args) {
    Appender out = *p_out;  // In registers, where one whose address others know is not.
    bool isAppended = out.literal(&p_format);
    while (isAppended && *p_format != '\0') {
        // Most are one of these two: without the detour by the switch, whose indirect jump is hard
        // to predict.
        const char conversion = *++p_format;
        if (conversion == 's') {
            const char* p_text = va_arg(args, const char*);
            ++p_format;
            isAppended =
                out.string(p_text != nullptr ? p_text : "(null)") && out.literal(&p_format);
            continue;
        }
        if (conversion == 'd') {
            ++p_format;
            isAppended = out.decimal(va_arg(args, int)) && out.literal(&p_format);
            continue;
        }
        const Directive directive = read(&p_format);
        switch (directive.kind) {
            case Kind::Character:
                isAppended = out.character(static_cast<char>(va_arg(args, int)));
                break;
            case Kind::Percent:
                isAppended = out.character('%');
                break;
            case Kind::Int:
                isAppended = out.decimal(va_arg(args, int));
                break;
            case Kind::Unsigned:
                isAppended = out.decimal(va_arg(args, unsigned));
                break;
            case Kind::Long:
                isAppended = out.decimal(va_arg(args, long));
                break;
            case Kind::UnsignedLong:
                isAppended = out.decimal(va_arg(args, unsigned long));
                break;
            case Kind::LongLong:
                isAppended = out.decimal(va_arg(args, long long));
                break;
            case Kind::UnsignedLongLong:
                isAppended = out.decimal(va_arg(args, unsigned long long));
                break;
            case Kind::Size:
                isAppended = out.decimal(va_arg(args, std::size_t));
                break;
            case Kind::SignedSize:
                isAppended = out.decimal(va_arg(args, ssize_t));
                break;
            case Kind::Hexadecimal:
                isAppended = out.hexadecimal(
                    va_arg(args, unsigned), directive.width,
                    directive.isUpperCase ? "0123456789ABCDEF" : "0123456789abcdef");
                break;
            case Kind::Other:
                return false;
        }
        if (isAppended) isAppended = out.literal(&p_format);
    }
    *p_out = out;
    return isAppended;
}

}  // namespace zor_debug
