// Printf-style formats checked while compiling. A call such as LogError(L"... %s ...", name)
// takes its format as a CheckedFormat of the argument types, whose constructor runs in the
// compiler: it reads the literal as msvcrt's wide printf does (Windows semantics: "%s" in a wide
// format is a wide string, "%hs" and "%S" narrow) and refuses the call when a conversion and its
// argument do not fit, or when there are more or fewer arguments than conversions. At run time
// nothing is left of it but the literal itself, handed to the C runtime as before.
//
// A refused call fails to compile with "call to non-'constexpr' function" naming what is wrong:
// FormatArgumentDoesNotFitConversion, FormatHasTooFewArguments, FormatHasTooManyArguments,
// FormatHasUnknownConversion.
#pragma once

#include <cstddef>
#include <type_traits>

namespace checked_format {

// What a printf argument is, as far as a conversion cares.
enum class ArgumentKind {
    Int32,   // integers, characters, enums and bool of up to four bytes (promoted to int)
    Int64,   // eight-byte integers (also long long, size_t, pointer-sized integers)
    Double,  // float (promoted) and double
    WideText,
    NarrowText,
    OtherPointer,
    // Class objects (std::wstring, BStr, Variant...), which no conversion reads; long double,
    // which mingw makes wider than msvcrt's; nullptr_t.
    NotPrintable,
};

// T as it arrives through "...": arrays as pointers, without const.
template <class T>
constexpr ArgumentKind KindOf() {
    using U = std::decay_t<T>;
    if constexpr (std::is_integral_v<U> || std::is_enum_v<U>) {
        return sizeof(U) <= 4 ? ArgumentKind::Int32 : ArgumentKind::Int64;
    } else if constexpr (std::is_same_v<U, float> || std::is_same_v<U, double>) {
        return ArgumentKind::Double;
    } else if constexpr (std::is_pointer_v<U>) {
        using Pointee = std::remove_cv_t<std::remove_pointer_t<U>>;
        if constexpr (std::is_same_v<Pointee, wchar_t>) {
            return ArgumentKind::WideText;
        } else if constexpr (std::is_same_v<Pointee, char>) {
            return ArgumentKind::NarrowText;
        } else {
            return ArgumentKind::OtherPointer;
        }
    } else {
        return ArgumentKind::NotPrintable;
    }
}

// For the formats that come from the string table at run time, only the arguments can be checked:
// each must be something wvsprintfW takes. Not a class object (std::wstring, BStr, Variant),
// which no conversion reads; not a floating-point number, which wvsprintfW does not format.
constexpr bool IsWindowsFormatKind(ArgumentKind kind) {
    return kind != ArgumentKind::NotPrintable && kind != ArgumentKind::Double;
}
template <class T>
concept WindowsFormatArgument = IsWindowsFormatKind(KindOf<T>());

// Not constexpr on purpose: reaching one while the compiler runs the check fails the build with
// the function's name in the error.
void FormatArgumentDoesNotFitConversion();
void FormatHasTooFewArguments();
void FormatHasTooManyArguments();
void FormatHasUnknownConversion();

// The argument kinds a conversion takes.
enum class Takes { Int32, Int64, Double, WideText, NarrowText, AnyPointer };

constexpr bool Fits(ArgumentKind kind, Takes takes) {
    switch (takes) {
    case Takes::Int32:
        return kind == ArgumentKind::Int32;
    case Takes::Int64:
        return kind == ArgumentKind::Int64;
    case Takes::Double:
        return kind == ArgumentKind::Double;
    case Takes::WideText:
        return kind == ArgumentKind::WideText;
    case Takes::NarrowText:
        return kind == ArgumentKind::NarrowText;
    case Takes::AnyPointer:
        return kind == ArgumentKind::WideText || kind == ArgumentKind::NarrowText ||
               kind == ArgumentKind::OtherPointer;
    }
    return false;
}

enum class Length { None, Short, Long, LongLong, LongDouble, Wide, PointerSized };

// What one conversion letter with its length modifier takes.
constexpr Takes ConversionTakes(wchar_t conversion, Length length) {
    switch (conversion) {
    case L'd':
    case L'i':
    case L'u':
    case L'o':
    case L'x':
    case L'X':
        // long is four bytes on Windows; "I" alone is pointer-sized.
        if (length == Length::None || length == Length::Short || length == Length::Long) {
            return Takes::Int32;
        }
        if (length == Length::LongLong || length == Length::PointerSized) {
            return Takes::Int64;
        }
        break;
    case L'c':
    case L'C':
        if (length == Length::None || length == Length::Short || length == Length::Long ||
            length == Length::Wide) {
            return Takes::Int32;
        }
        break;
    case L's':
    case L'S':
        // In a wide format "%s" is wide and "%S" narrow; "h" makes either narrow, "l" and "w"
        // wide.
        if (length == Length::Short || (conversion == L'S' && length == Length::None)) {
            return Takes::NarrowText;
        }
        if (length == Length::None || length == Length::Long || length == Length::Wide) {
            return Takes::WideText;
        }
        break;
    case L'p':
        if (length == Length::None) {
            return Takes::AnyPointer;
        }
        break;
    case L'f':
    case L'e':
    case L'E':
    case L'g':
    case L'G':
        // "%lf" and "%Lf" are plain doubles to msvcrt.
        if (length == Length::None || length == Length::Long || length == Length::LongDouble) {
            return Takes::Double;
        }
        break;
    default:
        // Also "%n", which writes through its argument, and a '%' at the very end.
        break;
    }
    FormatHasUnknownConversion();
    return Takes::Int32;
}

// Checks `format` against the kinds of its `count` arguments, in order.
consteval void Check(const wchar_t* format, const ArgumentKind* kinds, size_t count) {
    size_t next = 0;
    auto take = [&](Takes takes) {
        if (next == count) {
            FormatHasTooFewArguments();
        }
        if (!Fits(kinds[next], takes)) {
            FormatArgumentDoesNotFitConversion();
        }
        ++next;
    };
    auto isDigit = [](wchar_t c) { return c >= L'0' && c <= L'9'; };
    // A width or precision: digits, or '*' for an int argument of its own.
    auto skipNumber = [&](const wchar_t* p) {
        if (*p == L'*') {
            take(Takes::Int32);
            return p + 1;
        }
        while (isDigit(*p)) {
            ++p;
        }
        return p;
    };

    for (const wchar_t* p = format; *p; ++p) {
        if (*p != L'%') {
            continue;
        }
        ++p;
        if (*p == L'%') {
            continue;
        }
        while (*p == L'-' || *p == L'+' || *p == L' ' || *p == L'#' || *p == L'0') {
            ++p;
        }
        p = skipNumber(p);
        if (*p == L'.') {
            p = skipNumber(p + 1);
        }
        Length length = Length::None;
        if (p[0] == L'h') {
            length = Length::Short;
            p += p[1] == L'h' ? 2 : 1;
        } else if (p[0] == L'l') {
            length = p[1] == L'l' ? Length::LongLong : Length::Long;
            p += p[1] == L'l' ? 2 : 1;
        } else if (p[0] == L'L') {
            length = Length::LongDouble;
            ++p;
        } else if (p[0] == L'w') {
            length = Length::Wide;
            ++p;
        } else if (p[0] == L'I' && p[1] == L'6' && p[2] == L'4') {
            length = Length::LongLong;
            p += 3;
        } else if (p[0] == L'I' && p[1] == L'3' && p[2] == L'2') {
            length = Length::Long;
            p += 3;
        } else if (p[0] == L'I') {
            length = Length::PointerSized;
            ++p;
        }
        take(ConversionTakes(*p, length));
        if (!*p) {
            break;
        }
    }
    if (next != count) {
        FormatHasTooManyArguments();
    }
}

}  // namespace checked_format

// A format literal checked against the argument types Args (see the top of this file). Functions
// take it as FormatFor<Args...> with their arguments as const Args&..., so that Args are deduced
// from the arguments alone, as they decay on their way through "..." (a wchar_t[260] buffer is a
// wchar_t*); tables of formats that share their arguments hold it directly
// (CheckedFormat<HRESULT>).
template <class... Args>
class CheckedFormat {
public:
    template <class Text>
    requires std::is_convertible_v<const Text&, const wchar_t*>
    consteval CheckedFormat(const Text& text) : m_text(text) {
        constexpr checked_format::ArgumentKind kinds[sizeof...(Args) + 1] = {
            checked_format::KindOf<Args>()..., checked_format::ArgumentKind::NotPrintable};
        checked_format::Check(m_text, kinds, sizeof...(Args));
    }

    constexpr const wchar_t* c_str() const noexcept { return m_text; }

private:
    const wchar_t* m_text;
};

template <class... Args>
using FormatFor = CheckedFormat<std::decay_t<Args>...>;
