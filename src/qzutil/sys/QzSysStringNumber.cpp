// QzSysStringNumber.cpp: QzSysString's conversions between numbers and
// text. Integers are done here, once for both widths; doubles go through
// the formatting engine one way and strtod the other, so both follow the
// thread's LC_NUMERIC.
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysStringUnits.h"

namespace {

constexpr int kMinRadix = 2;
constexpr int kMaxRadix = 36;

// A digit value no radix accepts.
constexpr LtNat32 kNoDigit = 99;

// The digits of an integer as read, before it is fitted to its type.
struct ParsedInteger {
    LtNat64 magnitude = 0;
    bool is_negative = false;
    bool is_too_large = false;  // the magnitude passed 2^64 - 1
    bool has_digits = false;
};

}  // namespace

static bool IsValidRadix(int radix)
{
    return radix >= kMinRadix && radix <= kMaxRadix;
}

template <typename Integer>
static LtNat64 MagnitudeOf(Integer value)
{
    // Unsigned arithmetic: the magnitude of the minimum has no signed form.
    return value < 0 ? LtNat64{0} - static_cast<LtNat64>(value) : static_cast<LtNat64>(value);
}

// Writes '-' (if negative) and the magnitude's digits, most significant
// first, or "" and -1 when the radix or the room does not do.
template <typename Unit>
static int FormatInteger(LtNat64 magnitude, bool is_negative, Unit *buffer, std::size_t size,
                         int radix)
{
    static char const s_digits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    if (buffer == nullptr || size == 0)
        return -1;
    if (!IsValidRadix(radix)) {
        buffer[0] = 0;
        return -1;
    }
    char reversed[64];  // radix 2 of 2^64 - 1 has the most digits
    std::size_t count = 0;
    auto base = static_cast<LtNat64>(radix);
    do {
        reversed[count++] = s_digits[magnitude % base];
        magnitude /= base;
    } while (magnitude > 0);
    std::size_t length = count + (is_negative ? 1 : 0);
    if (length >= size) {
        buffer[0] = 0;
        return -1;
    }
    std::size_t at = 0;
    if (is_negative)
        buffer[at++] = static_cast<Unit>('-');
    while (count > 0)
        buffer[at++] = static_cast<Unit>(reversed[--count]);
    buffer[at] = 0;
    return static_cast<int>(at);
}

template <typename Unit, typename Integer>
static int FormatValue(Integer value, Unit *buffer, std::size_t size, int radix)
{
    return FormatInteger(MagnitudeOf(value), value < 0, buffer, size, radix);
}

// The value of an ASCII letter or digit as a digit, kNoDigit for the rest.
static LtNat32 DigitValue(LtNat32 code)
{
    if (code >= '0' && code <= '9')
        return code - '0';
    if (code >= 'a' && code <= 'z')
        return code - 'a' + 10;
    if (code >= 'A' && code <= 'Z')
        return code - 'A' + 10;
    return kNoDigit;
}

template <typename Unit>
static Unit const *SkipSpace(Unit const *text)
{
    while (QzStringUnits<Unit>::IsSpace(*text))
        ++text;
    return text;
}

// Reads white space, sign, "0x" and digits. Returns the end of the digits,
// or text itself when there are none.
template <typename Unit>
static Unit const *ParseInteger(Unit const *text, int radix, ParsedInteger *parsed)
{
    using Units = QzStringUnits<Unit>;
    auto base = static_cast<LtNat32>(radix);
    Unit const *cursor = SkipSpace(text);
    if (*cursor == '+' || *cursor == '-')
        parsed->is_negative = *cursor++ == '-';
    // "0x" counts only when a hexadecimal digit follows; otherwise the "0"
    // alone is the number, as in strtol.
    if (radix == 16 && cursor[0] == '0' && (cursor[1] == 'x' || cursor[1] == 'X') &&
        DigitValue(Units::Code(cursor[2])) < 16)
        cursor += 2;
    Unit const *digits = cursor;
    LtNat64 const limit = std::numeric_limits<LtNat64>::max();
    for (LtNat32 digit; (digit = DigitValue(Units::Code(*cursor))) < base; ++cursor) {
        if (parsed->magnitude > (limit - digit) / base)
            parsed->is_too_large = true;
        else
            parsed->magnitude = parsed->magnitude * base + digit;
    }
    parsed->has_digits = cursor != digits;
    return parsed->has_digits ? cursor : text;
}

// Fits the parsed number to Integer, clamping at its bounds. Returns false
// when it had to clamp.
template <typename Integer>
static bool FitInteger(ParsedInteger const &parsed, Integer *value)
{
    using Limits = std::numeric_limits<Integer>;
    auto const max_positive = static_cast<LtNat64>(Limits::max());
    if (!parsed.is_negative) {
        if (parsed.is_too_large || parsed.magnitude > max_positive) {
            *value = Limits::max();
            return false;
        }
        *value = static_cast<Integer>(parsed.magnitude);
        return true;
    }
    if (parsed.magnitude == 0 && !parsed.is_too_large) {
        *value = 0;
        return true;
    }
    if constexpr (Limits::is_signed) {
        if (!parsed.is_too_large && parsed.magnitude <= max_positive + 1) {
            // magnitude - 1 fits LtInt64, so the negation cannot overflow.
            *value = static_cast<Integer>(-static_cast<LtInt64>(parsed.magnitude - 1) - 1);
            return true;
        }
    }
    *value = Limits::min();
    return false;
}

// The end-pointer rule shared by every text-to-number conversion: with an
// end pointer, stopping early is the caller's business; without one, the
// number must be the whole text. A null text is never converted.
template <typename Unit>
static bool FinishParse(bool is_converted, Unit const *stop, Unit const **end)
{
    if (end != nullptr)
        *end = stop;
    return is_converted && (end != nullptr || *stop == 0);
}

template <typename Integer, typename Unit>
static bool ConvertInteger(Unit const *text, Integer *value, int radix, Unit const **end)
{
    Integer result = 0;
    Unit const *stop = text;
    bool is_converted = false;
    if (text != nullptr && IsValidRadix(radix)) {
        ParsedInteger parsed;
        stop = ParseInteger(text, radix, &parsed);
        if (parsed.has_digits)
            is_converted = FitInteger(parsed, &result);
    }
    if (value != nullptr)
        *value = result;
    return FinishParse(is_converted, stop, end);
}

int QzSysString::Int32ToStr(LtInt32 value, char *buffer, std::size_t size, int radix)
{
    return FormatValue(value, buffer, size, radix);
}

int QzSysString::UInt32ToStr(LtNat32 value, char *buffer, std::size_t size, int radix)
{
    return FormatValue(value, buffer, size, radix);
}

int QzSysString::Int64ToStr(LtInt64 value, char *buffer, std::size_t size, int radix)
{
    return FormatValue(value, buffer, size, radix);
}

int QzSysString::UInt64ToStr(LtNat64 value, char *buffer, std::size_t size, int radix)
{
    return FormatValue(value, buffer, size, radix);
}

int QzSysString::WideIntToStr(LtInt64 value, LtWChar *buffer, std::size_t size, int radix)
{
    return FormatValue(value, buffer, size, radix);
}

int QzSysString::DoubleToStr(double value, char *buffer, std::size_t size, int precision)
{
    if (precision < 0) {
        if (buffer != nullptr && size > 0)
            buffer[0] = '\0';
        return -1;
    }
    return Sprintf(buffer, size, "%.*g", precision, value);
}

bool QzSysString::StrToInt32(char const *text, LtInt32 *value, int radix, char const **end)
{
    return ConvertInteger(text, value, radix, end);
}

bool QzSysString::StrToUInt32(char const *text, LtNat32 *value, int radix, char const **end)
{
    return ConvertInteger(text, value, radix, end);
}

bool QzSysString::StrToInt64(char const *text, LtInt64 *value, int radix, char const **end)
{
    return ConvertInteger(text, value, radix, end);
}

bool QzSysString::StrToUInt64(char const *text, LtNat64 *value, int radix, char const **end)
{
    return ConvertInteger(text, value, radix, end);
}

bool QzSysString::WideStrtol(LtWChar const *text, LtInt32 *value, int radix, LtWChar const **end)
{
    return ConvertInteger(text, value, radix, end);
}

bool QzSysString::WideStrtod(LtWChar const *text, double *value, LtWChar const **end)
{
    double result = 0.0;
    bool is_converted = false;
    LtWChar const *stop = text;
    if (text != nullptr) {
        // Only printable ASCII can belong to a number, so the copy stops at
        // the first blank or wider character and a scan through a long
        // text stays linear.
        LtWChar const *start = SkipSpace(text);
        std::string narrow;
        for (LtWChar const *cursor = start; *cursor > 0x20 && *cursor < 0x7F; ++cursor)
            narrow.push_back(static_cast<char>(*cursor));
        char *narrow_end = nullptr;
        int saved_errno = errno;
        errno = 0;
        result = std::strtod(narrow.c_str(), &narrow_end);
        bool is_overflow = errno == ERANGE && std::isinf(result);
        errno = saved_errno;
        if (narrow_end != narrow.c_str()) {
            stop = start + (narrow_end - narrow.c_str());
            is_converted = !is_overflow;
        }
    }
    if (value != nullptr)
        *value = result;
    return FinishParse(is_converted, stop, end);
}
