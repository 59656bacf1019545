// QzSysString.cpp: the formatting engine, one template over the output unit
// (char or LtWChar). Conversions are parsed here; strings,
// characters and pointers are written here; numbers are handed to the C
// library one at a time, so they follow the thread's LC_NUMERIC.
#include "qzutil/sys/QzSysString.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <new>
#include <type_traits>

#include "qzutil/sys/internal/QzSysCodePage.h"
#include "qzutil/sys/internal/QzUtf8.h"

namespace {

// Widths and precisions saturate here: far beyond any real use, and small
// enough that the decimal parse and snprintf's own int fields cannot overflow.
constexpr int kMaxField = 100000000;

// snprintf's first attempt goes to the stack. "%f" of DBL_MAX has 309
// digits; with a sign, a point and 300 decimals any double with a precision
// up to 300 fits, so only larger precisions and fields, or "%Lf" of a huge
// long double, go to the heap.
constexpr std::size_t kStackNumberBytes = 640;
// Extra bytes formatted past the output's room, so that a multi-byte decimal
// point near the end still decodes to whole characters.
constexpr std::size_t kNumberSlackBytes = 16;

// The argument list of one formatting call. Wrapped so that helpers can take
// it by reference: a va_list passed by value is indeterminate in the caller
// once the callee has read from it.
struct Arguments {
    va_list list;
};

enum class SizePrefix {
    eNONE,
    eCHAR,         // hh
    eSHORT,        // h
    eLONG,         // l: 64-bit on integers, nothing on floating point
    eLONG_LONG,    // ll, I64
    eINT32,        // I32
    eSIZE,         // I, z, t, j: 64-bit
    eLONG_DOUBLE,  // L
    eWIDE,         // w
};

// One parsed conversion: everything from the '%' to the letter.
struct Conversion {
    bool left_justify = false;  // '-'
    bool force_sign = false;    // '+'
    bool space_sign = false;    // ' '
    bool alternate = false;     // '#'
    bool zero_pad = false;      // '0'
    std::size_t width = 0;      // output units
    int precision = -1;         // -1: none given
    SizePrefix size = SizePrefix::eNONE;
    char letter = 0;
};

// The caller's output buffer. Writes stop at the capacity; the first unit
// that does not fit marks the output as cut.
//
// Ownership: borrows the buffer, which has room for capacity units plus nul.
template <typename Unit>
class OutputBuffer {
public:
    OutputBuffer(Unit *buffer, std::size_t capacity) : m_buffer(buffer), m_capacity(capacity) {}

    bool IsCut() const { return m_is_cut; }
    void MarkCut() { m_is_cut = true; }
    std::size_t Room() const { return m_capacity - m_length; }

    void Append(Unit const *units, std::size_t count)
    {
        std::size_t taken = Take(count);
        std::copy(units, units + taken, m_buffer + m_length);
        m_length += taken;
    }

    // Widens text that is known to be ASCII.
    void AppendAscii(char const *text, std::size_t count)
    {
        std::size_t taken = Take(count);
        for (std::size_t i = 0; i < taken; ++i)
            m_buffer[m_length + i] = static_cast<Unit>(text[i]);
        m_length += taken;
    }

    void AppendRepeated(Unit unit, std::size_t count)
    {
        std::size_t taken = Take(count);
        std::fill(m_buffer + m_length, m_buffer + m_length + taken, unit);
        m_length += taken;
    }

    // Terminates the output; returns the result of the formatting call.
    int Finish()
    {
        m_buffer[m_length] = 0;
        return m_is_cut ? -1 : static_cast<int>(m_length);
    }

private:
    // How many of count units fit; marks the cut when not all of them do.
    std::size_t Take(std::size_t count)
    {
        if (count <= Room())
            return count;
        m_is_cut = true;
        return Room();
    }

    Unit *m_buffer;
    std::size_t m_capacity;  // units before the nul
    std::size_t m_length = 0;
    bool m_is_cut = false;
};

// Collects the characters of a width-changing conversion up to a limit of
// output units, never taking part of a character. With no output it only
// counts, which gives the length that the field width needs.
template <typename Unit>
struct ConvertedText {
    OutputBuffer<Unit> *out;  // nullptr: count only
    std::size_t limit;        // units; the precision, if any
    std::size_t length;       // units taken so far
};

// A narrow conversion rebuilt as a format for snprintf: the flags, the
// width and precision (with '*' already resolved), a length modifier and the
// letter. Everything in it was parsed and checked by the engine first.
class NumberFormat {
public:
    NumberFormat(Conversion const &conversion, char const *length_modifier)
    {
        Add('%');
        if (conversion.left_justify)
            Add('-');
        if (conversion.force_sign)
            Add('+');
        if (conversion.space_sign)
            Add(' ');
        if (conversion.alternate)
            Add('#');
        if (conversion.zero_pad)
            Add('0');
        if (conversion.width > 0)
            AddDecimal(conversion.width);
        if (conversion.precision >= 0) {
            Add('.');
            AddDecimal(static_cast<std::size_t>(conversion.precision));
        }
        while (*length_modifier != '\0')
            Add(*length_modifier++);
        Add(conversion.letter);
        m_text[m_length] = '\0';
    }

    char const *Text() const { return m_text; }

private:
    void Add(char c) { m_text[m_length++] = c; }

    void AddDecimal(std::size_t value)
    {
        char digits[12];
        std::size_t count = 0;
        do {
            digits[count++] = static_cast<char>('0' + value % 10);
            value /= 10;
        } while (value > 0);
        while (count > 0)
            Add(digits[--count]);
    }

    // '%', five flags, two fields of up to 9 digits, '.', a modifier of up to
    // two letters, the letter and the nul: at most 30.
    char m_text[32];
    std::size_t m_length = 0;
};

}  // namespace

static LtNat32 CodeOf(char unit)
{
    return static_cast<unsigned char>(unit);
}

static LtNat32 CodeOf(LtWChar unit)
{
    return unit;
}

template <typename Unit>
static std::size_t BoundedLength(Unit const *text, std::size_t limit)
{
    std::size_t length = 0;
    while (length < limit && text[length] != 0)
        ++length;
    return length;
}

template <typename Unit>
static Unit const *NullText();

template <>
char const *NullText<char>()
{
    return "(null)";
}

template <>
LtWChar const *NullText<LtWChar>()
{
    return u"(null)";
}

// Reads a decimal field of the format, saturating at kMaxField.
template <typename Unit>
static int ReadDecimal(Unit const *&cursor)
{
    int value = 0;
    for (; CodeOf(*cursor) >= '0' && CodeOf(*cursor) <= '9'; ++cursor)
        value = std::min(value * 10 + static_cast<int>(CodeOf(*cursor) - '0'), kMaxField);
    return value;
}

// Reads a width or precision given as '*' from the arguments.
static int ReadStarField(Arguments &args)
{
    int value = va_arg(args.list, int);
    if (value == INT_MIN)
        return -kMaxField;
    return std::max(std::min(value, kMaxField), -kMaxField);
}

static bool ApplyFlag(LtNat32 code, Conversion *conversion)
{
    switch (code) {
    case '-':
        conversion->left_justify = true;
        return true;
    case '+':
        conversion->force_sign = true;
        return true;
    case ' ':
        conversion->space_sign = true;
        return true;
    case '#':
        conversion->alternate = true;
        return true;
    case '0':
        conversion->zero_pad = true;
        return true;
    default:
        return false;
    }
}

template <typename Unit>
static SizePrefix ReadSizePrefix(Unit const *&cursor)
{
    switch (CodeOf(cursor[0])) {
    case 'h':
        if (CodeOf(cursor[1]) == 'h') {
            cursor += 2;
            return SizePrefix::eCHAR;
        }
        ++cursor;
        return SizePrefix::eSHORT;
    case 'l':
        if (CodeOf(cursor[1]) == 'l') {
            cursor += 2;
            return SizePrefix::eLONG_LONG;
        }
        ++cursor;
        return SizePrefix::eLONG;
    case 'L':
        ++cursor;
        return SizePrefix::eLONG_DOUBLE;
    case 'w':
        ++cursor;
        return SizePrefix::eWIDE;
    case 'z':
    case 't':
    case 'j':
        ++cursor;
        return SizePrefix::eSIZE;
    case 'I':
        if (CodeOf(cursor[1]) == '6' && CodeOf(cursor[2]) == '4') {
            cursor += 3;
            return SizePrefix::eLONG_LONG;
        }
        if (CodeOf(cursor[1]) == '3' && CodeOf(cursor[2]) == '2') {
            cursor += 3;
            return SizePrefix::eINT32;
        }
        ++cursor;
        return SizePrefix::eSIZE;
    default:
        return SizePrefix::eNONE;
    }
}

// Whether a size prefix may go with a conversion letter; other pairs are not
// conversions and are copied as written.
static bool IsKnownConversion(LtNat32 letter, SizePrefix size)
{
    switch (letter) {
    case 'd':
    case 'i':
    case 'u':
    case 'o':
    case 'x':
    case 'X':
    case 'n':
        return size != SizePrefix::eLONG_DOUBLE && size != SizePrefix::eWIDE;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
        return size == SizePrefix::eNONE || size == SizePrefix::eLONG ||
               size == SizePrefix::eLONG_DOUBLE;
    case 's':
    case 'S':
    case 'c':
    case 'C':
        return size == SizePrefix::eNONE || size == SizePrefix::eSHORT ||
               size == SizePrefix::eLONG || size == SizePrefix::eWIDE;
    case 'p':
    case '%':
        return size == SizePrefix::eNONE;
    default:
        return false;
    }
}

// Parses the conversion that follows a '%', taking '*' fields from the
// arguments. Returns false, with the cursor after the offending unit (or at
// the format's end), for something that is not a conversion.
template <typename Unit>
static bool ParseConversion(Unit const *&cursor, Arguments &args, Conversion *conversion)
{
    while (ApplyFlag(CodeOf(*cursor), conversion))
        ++cursor;
    int width = 0;
    if (CodeOf(*cursor) == '*') {
        ++cursor;
        width = ReadStarField(args);
    } else {
        width = ReadDecimal(cursor);
    }
    if (width < 0)  // a negative '*' width means '-' and its magnitude
        conversion->left_justify = true;
    conversion->width = static_cast<std::size_t>(width < 0 ? -width : width);
    if (CodeOf(*cursor) == '.') {
        ++cursor;
        if (CodeOf(*cursor) == '*') {
            ++cursor;
            conversion->precision = std::max(ReadStarField(args), -1);  // negative: none
        } else {
            conversion->precision = ReadDecimal(cursor);
        }
    }
    conversion->size = ReadSizePrefix(cursor);
    LtNat32 letter = CodeOf(*cursor);
    if (letter == 0)
        return false;
    ++cursor;
    if (!IsKnownConversion(letter, conversion->size))
        return false;
    conversion->letter = static_cast<char>(letter);
    return true;
}

// Appends length units of a field, padded with blanks to the field width
// on the left or, with '-', on the right.
template <typename Unit, typename AppendBody>
static void AppendPadded(OutputBuffer<Unit> &out, Conversion const &conversion, std::size_t length,
                         AppendBody const &append_body)
{
    std::size_t padding = conversion.width > length ? conversion.width - length : 0;
    if (!conversion.left_justify)
        out.AppendRepeated(static_cast<Unit>(' '), padding);
    append_body();
    if (conversion.left_justify)
        out.AppendRepeated(static_cast<Unit>(' '), padding);
}

template <typename Unit>
static bool TakeConvertedCharacter(void *context, Unit const *units, std::size_t count)
{
    auto *text = static_cast<ConvertedText<Unit> *>(context);
    if (count > text->limit - text->length)
        return false;
    text->length += count;
    if (text->out == nullptr)
        return true;
    text->out->Append(units, count);
    return !text->out->IsCut();
}

static void ConvertText(LtWChar const *text, std::size_t length, ConvertedText<char> *converted)
{
    QzSysCodePage::Encode(text, length, &TakeConvertedCharacter<char>, converted);
}

static void ConvertText(char const *text, std::size_t length, ConvertedText<LtWChar> *converted)
{
    // With replacement decoding cannot fail.
    (void)QzSysCodePage::Decode(text, length, /*replace_invalid=*/true,
                                &TakeConvertedCharacter<LtWChar>, converted);
}

// Appends text of the other width through the code page. The precision
// limits output units; a first pass measures the text only when a width
// needs its length before it is written.
template <typename Unit, typename Input>
static void AppendConverted(OutputBuffer<Unit> &out, Conversion const &conversion,
                            Input const *text, std::size_t length)
{
    std::size_t limit =
        conversion.precision < 0 ? SIZE_MAX : static_cast<std::size_t>(conversion.precision);
    ConvertedText<Unit> measured{nullptr, limit, 0};
    if (conversion.width > 0)
        ConvertText(text, length, &measured);
    AppendPadded(out, conversion, measured.length, [&] {
        ConvertedText<Unit> written{&out, limit, 0};
        ConvertText(text, length, &written);
    });
}

// The length of a same-width string cut to `limit` units without splitting
// a character: a multi-byte sequence of the code page, or a surrogate pair.
static std::size_t CutWholeCharacters(char const *text, std::size_t limit)
{
    return QzSysCodePage::WholeCharacterPrefix(text, limit);
}

static std::size_t CutWholeCharacters(LtWChar const *text, std::size_t limit)
{
    return limit > 0 && QzUtf16::IsHighSurrogate(text[limit - 1]) ? limit - 1 : limit;
}

// Appends the text of a %s or %c conversion. A precision reads at most that
// many units of same-width text, which need not be terminated; text of the
// other width is read to its nul.
template <typename Unit, typename Input>
static void AppendText(OutputBuffer<Unit> &out, Conversion const &conversion, Input const *text,
                       std::size_t length)
{
    if constexpr (std::is_same<Unit, Input>::value) {
        if (conversion.precision >= 0 && length >= static_cast<std::size_t>(conversion.precision))
            length = CutWholeCharacters(text, static_cast<std::size_t>(conversion.precision));
        AppendPadded(out, conversion, length, [&] { out.Append(text, length); });
    } else {
        AppendConverted(out, conversion, text, length);
    }
}

template <typename Unit, typename Input>
static void AppendString(OutputBuffer<Unit> &out, Conversion const &conversion, Input const *text)
{
    if (text == nullptr)
        text = NullText<Input>();
    std::size_t limit = SIZE_MAX;
    if (std::is_same<Unit, Input>::value && conversion.precision >= 0)
        limit = static_cast<std::size_t>(conversion.precision);
    AppendText(out, conversion, text, BoundedLength(text, limit));
}

// Whether a string or character conversion takes 16-bit text: 'h' forces
// narrow, 'l' and 'w' wide; otherwise "s" and "c" follow the format's own
// width and "S" and "C" take the other.
template <typename Unit>
static bool TakesWideArgument(Conversion const &conversion)
{
    if (conversion.size == SizePrefix::eSHORT)
        return false;
    if (conversion.size == SizePrefix::eLONG || conversion.size == SizePrefix::eWIDE)
        return true;
    bool is_other_width = conversion.letter == 'S' || conversion.letter == 'C';
    return std::is_same<Unit, LtWChar>::value != is_other_width;
}

template <typename Unit>
static void FormatString(OutputBuffer<Unit> &out, Conversion const &conversion, Arguments &args)
{
    if (TakesWideArgument<Unit>(conversion))
        AppendString(out, conversion, va_arg(args.list, LtWChar const *));
    else
        AppendString(out, conversion, va_arg(args.list, char const *));
}

template <typename Unit>
static void FormatCharacter(OutputBuffer<Unit> &out, Conversion const &conversion, Arguments &args)
{
    int value = va_arg(args.list, int);  // both widths arrive promoted to int
    Conversion whole = conversion;
    whole.precision = -1;  // a precision does not apply to one character
    if (TakesWideArgument<Unit>(conversion)) {
        auto character = static_cast<LtWChar>(value);
        AppendText(out, whole, &character, 1);
    } else {
        auto character = static_cast<char>(value);
        AppendText(out, whole, &character, 1);
    }
}

// snprintf through a va_list, so the rebuilt format needs no literal. The
// format is one conversion this engine rebuilt after parsing it, never a
// caller's text, so Clang's warning on a non-literal format is off here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
static int FormatNumber(char *text, std::size_t size, char const *number_format, ...)
{
    va_list args;
    va_start(args, number_format);
    int written = std::vsnprintf(text, size, number_format, args);
    va_end(args);
    return written;
}
#pragma GCC diagnostic pop

static void AppendNumberText(OutputBuffer<char> &out, char const *text, std::size_t length)
{
    out.Append(text, length);
}

static void AppendNumberText(OutputBuffer<LtWChar> &out, char const *text, std::size_t length)
{
    // Digits, signs, "inf" and "nan" are ASCII; only a locale's decimal point
    // may not be, and then the text goes through the code page.
    bool is_ascii = std::all_of(text, text + length,
                                [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    if (is_ascii)
        out.AppendAscii(text, length);
    else
        AppendConverted(out, Conversion(), text, length);
}

template <typename Unit, typename Value>
static void AppendNumber(OutputBuffer<Unit> &out, NumberFormat const &number_format, Value value)
{
    char stack_text[kStackNumberBytes];
    int needed = FormatNumber(stack_text, sizeof stack_text, number_format.Text(), value);
    if (needed < 0)
        return;  // EOVERFLOW: beyond INT_MAX characters, nothing sensible to print
    auto length = static_cast<std::size_t>(needed);
    if (length < sizeof stack_text) {
        AppendNumberText(out, stack_text, length);
        return;
    }
    // Only the part that can still reach the output is formatted.
    std::size_t wanted = std::min(length, out.Room() + kNumberSlackBytes);
    std::unique_ptr<char[]> heap_text(new (std::nothrow) char[wanted + 1]);
    if (!heap_text) {
        out.MarkCut();  // the text is not all there; say so rather than print a wrong number
        return;
    }
    (void)FormatNumber(heap_text.get(), wanted + 1, number_format.Text(),
                       value);  // needed, as above
    AppendNumberText(out, heap_text.get(), wanted);
    if (wanted < length)
        out.MarkCut();
}

static LtInt64 FetchSigned(SizePrefix size, Arguments &args)
{
    switch (size) {
    case SizePrefix::eCHAR:
        return static_cast<signed char>(va_arg(args.list, int));
    case SizePrefix::eSHORT:
        return static_cast<short>(va_arg(args.list, int));
    case SizePrefix::eNONE:
    case SizePrefix::eINT32:
        return va_arg(args.list, int);
    default:  // l, ll, I64, I, z, t, j: all 64-bit here
        return va_arg(args.list, LtInt64);
    }
}

static LtNat64 FetchUnsigned(SizePrefix size, Arguments &args)
{
    switch (size) {
    case SizePrefix::eCHAR:
        return static_cast<unsigned char>(va_arg(args.list, unsigned));
    case SizePrefix::eSHORT:
        return static_cast<unsigned short>(va_arg(args.list, unsigned));
    case SizePrefix::eNONE:
    case SizePrefix::eINT32:
        return va_arg(args.list, unsigned);
    default:
        return va_arg(args.list, LtNat64);
    }
}

// Integers are fetched by their size prefix, then printed as intmax_t: the
// value already has the width the prefix asked for.
template <typename Unit>
static void FormatInteger(OutputBuffer<Unit> &out, Conversion const &conversion, Arguments &args)
{
    NumberFormat number_format(conversion, "j");
    if (conversion.letter == 'd' || conversion.letter == 'i')
        AppendNumber(out, number_format,
                     static_cast<std::intmax_t>(FetchSigned(conversion.size, args)));
    else
        AppendNumber(out, number_format,
                     static_cast<std::uintmax_t>(FetchUnsigned(conversion.size, args)));
}

template <typename Unit>
static void FormatFloat(OutputBuffer<Unit> &out, Conversion const &conversion, Arguments &args)
{
    if (conversion.size == SizePrefix::eLONG_DOUBLE)
        AppendNumber(out, NumberFormat(conversion, "L"), va_arg(args.list, long double));
    else
        AppendNumber(out, NumberFormat(conversion, ""), va_arg(args.list, double));
}

// 16 upper-case hex digits, no prefix, in both widths.
template <typename Unit>
static void FormatPointer(OutputBuffer<Unit> &out, Conversion const &conversion, Arguments &args)
{
    auto address = reinterpret_cast<std::uintptr_t>(va_arg(args.list, void *));
    constexpr std::size_t kDigits = 2 * sizeof address;
    char digits[kDigits];
    for (std::size_t i = kDigits; i > 0; --i, address >>= 4)
        digits[i - 1] = "0123456789ABCDEF"[address & 0xF];
    AppendPadded(out, conversion, kDigits, [&] { out.AppendAscii(digits, kDigits); });
}

template <typename Unit>
static void FormatConversion(OutputBuffer<Unit> &out, Conversion const &conversion, Arguments &args)
{
    switch (conversion.letter) {
    case 's':
    case 'S':
        FormatString(out, conversion, args);
        break;
    case 'c':
    case 'C':
        FormatCharacter(out, conversion, args);
        break;
    case 'p':
        FormatPointer(out, conversion, args);
        break;
    case 'n':
        (void)va_arg(args.list, void *);  // taken so later arguments line up; nothing stored
        break;
    case '%':
        out.AppendAscii("%", 1);
        break;
    case 'e':
    case 'E':
    case 'f':
    case 'F':
    case 'g':
    case 'G':
    case 'a':
    case 'A':
        FormatFloat(out, conversion, args);
        break;
    default:  // d i u o x X: IsKnownConversion let nothing else through
        FormatInteger(out, conversion, args);
        break;
    }
}

template <typename Unit>
static int FormatInto(Unit *buffer, std::size_t count, Unit const *format, va_list list)
{
    if (buffer == nullptr || count == 0)
        return -1;
    OutputBuffer<Unit> out(buffer, std::min<std::size_t>(count - 1, INT_MAX));
    if (format == nullptr)
        return out.Finish();
    Arguments args;
    va_copy(args.list, list);
    Unit const *cursor = format;
    while (*cursor != 0 && !out.IsCut()) {
        Unit const *literal = cursor;
        while (*cursor != 0 && CodeOf(*cursor) != '%')
            ++cursor;
        out.Append(literal, static_cast<std::size_t>(cursor - literal));
        if (*cursor == 0)
            break;
        Unit const *percent = cursor++;
        Conversion conversion;
        if (ParseConversion(cursor, args, &conversion))
            FormatConversion(out, conversion, args);
        else
            out.Append(percent, static_cast<std::size_t>(cursor - percent));
    }
    va_end(args.list);
    return out.Finish();
}

int QzSysString::Sprintf(char *buffer, std::size_t count, char const *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = FormatInto(buffer, count, format, args);
    va_end(args);
    return result;
}

int QzSysString::Vsprintf(char *buffer, std::size_t count, char const *format, va_list args)
{
    return FormatInto(buffer, count, format, args);
}

int QzSysString::WideSprintf(LtWChar *buffer, std::size_t count, LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = FormatInto(buffer, count, format, args);
    va_end(args);
    return result;
}

int QzSysString::WideVsprintf(LtWChar *buffer, std::size_t count, LtWChar const *format,
                              va_list args)
{
    return FormatInto(buffer, count, format, args);
}

namespace {

// Collects encoded bytes for standard output and writes them in blocks.
struct StandardOutputWriter {
    char block[512];
    std::size_t used;
    bool has_failed;
};

}  // namespace

static bool WriteBlock(StandardOutputWriter *writer)
{
    if (writer->used > 0 && std::fwrite(writer->block, 1, writer->used, stdout) != writer->used)
        writer->has_failed = true;
    writer->used = 0;
    return !writer->has_failed;
}

static bool WriteEncodedCharacter(void *context, char const *bytes, std::size_t count)
{
    auto *writer = static_cast<StandardOutputWriter *>(context);
    if (count > sizeof writer->block - writer->used && !WriteBlock(writer))
        return false;
    // One character is far smaller than a block.
    std::copy(bytes, bytes + count, writer->block + writer->used);
    writer->used += count;
    return true;
}

int QzSysString::WidePrintf(LtWChar const *format, ...)
{
    va_list args;
    va_start(args, format);
    int result = WideVprintf(format, args);
    va_end(args);
    return result;
}

int QzSysString::WideVprintf(LtWChar const *format, va_list args)
{
    // Formats into the stack first, then into heap buffers twice as large
    // until the text fits; the engine's result can never exceed INT_MAX.
    constexpr std::size_t kStackUnits = 512;
    constexpr std::size_t kMaxUnits = std::size_t{INT_MAX} + 1;
    LtWChar stack_text[kStackUnits];
    std::unique_ptr<LtWChar[]> heap_text;
    LtWChar *text = stack_text;
    std::size_t capacity = kStackUnits;
    int length = -1;
    for (;;) {
        va_list attempt;
        va_copy(attempt, args);
        length = FormatInto(text, capacity, format, attempt);
        va_end(attempt);
        if (length >= 0)
            break;
        if (capacity >= kMaxUnits)
            return -1;
        capacity *= 2;
        heap_text.reset(new (std::nothrow) LtWChar[capacity]);
        if (!heap_text)
            return -1;
        text = heap_text.get();
    }
    StandardOutputWriter writer{{}, 0, false};
    QzSysCodePage::Encode(text, static_cast<std::size_t>(length), &WriteEncodedCharacter, &writer);
    if (!WriteBlock(&writer) || std::fflush(stdout) != 0)
        return -1;
    return length;
}
