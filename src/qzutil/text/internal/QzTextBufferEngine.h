// QzTextBufferEngine.h: the algorithms of the two text buffers (pointer,
// length, capacity), shared by QzStringBuffer and QzWideStringBuffer through
// one template. Internal: never installed.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <type_traits>
#include <utility>

#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/internal/QzTextAlgorithms.h"

// Statics over one buffer class, a friend of that class. The buffer's fields:
// m_begin (owned block or null), m_length (units before the terminator) and
// m_capacity (units in the block, terminator included).
//
// Block sizes come from QzMemory::Expand and GetBestBlockSize, so a buffer
// grows by the allocator's size classes and has no growth factor of its own.
// Invariant: m_begin[m_length] is a nul whenever m_begin is not null, except
//            between BeginEditBuffer and EndEditBuffer.
template <typename Buffer>
class QzTextBufferEngine {
public:
    using Unit = std::remove_pointer_t<decltype(Buffer::m_begin)>;
    using Text = QzTextAlgorithms<Unit>;

    // Format starts with room for 101 units and stops growing above this
    // many (100 MiB of narrow text).
    static constexpr int kFormatStartUnits = 101;
    static constexpr int kFormatMaxUnits = 104857600;

    static void Release(Buffer &buffer)
    {
        QzMemory::Dealloc(buffer.m_begin, Text::BytesFor(buffer.m_capacity), Text::kAlignment);
        buffer.m_begin = nullptr;
        buffer.m_length = 0;
        buffer.m_capacity = 0;
    }

    static void Swap(Buffer &a, Buffer &b)
    {
        std::swap(a.m_begin, b.m_begin);
        std::swap(a.m_length, b.m_length);
        std::swap(a.m_capacity, b.m_capacity);
    }

    // Makes room for `units` units and the terminator. Returns false, with
    // the buffer unchanged, only when the allocator has no memory.
    [[nodiscard]] static bool Reserve(Buffer &buffer, int units)
    {
        if (buffer.m_begin != nullptr && (units < 0 || units < buffer.m_capacity))
            return true;
        if (units < 0)
            units = 0;  // a first block always has room for the terminator
        bool is_new = buffer.m_begin == nullptr;
        unsigned size = Text::BytesFor(buffer.m_capacity);
        void *block =
            QzMemory::Expand(buffer.m_begin, &size, Text::BytesFor(static_cast<LtInt64>(units) + 1),
                             Text::kAlignment);
        if (block == nullptr)
            return false;
        buffer.m_begin = static_cast<Unit *>(block);
        buffer.m_capacity = static_cast<int>(size / sizeof(Unit));
        buffer.m_begin[units] = 0;
        buffer.m_begin[buffer.m_capacity - 1] = 0;
        if (is_new && units > 0)
            buffer.m_begin[0] = 0;
        return true;
    }

    // Copies the first `length` units of `text` (all of it for a negative
    // length). A block too small is replaced, without keeping the content.
    static void SetString(Buffer &buffer, Unit const *text, int length)
    {
        if (text == buffer.m_begin)
            return;
        if (text == nullptr) {
            Release(buffer);
            return;
        }
        if (length < 0)
            length = Text::Length(text);
        if (length >= buffer.m_capacity) {
            Release(buffer);
            unsigned size =
                QzMemory::GetBestBlockSize(Text::BytesFor(static_cast<LtInt64>(length) + 1));
            void *block = QzMemory::Alloc(size, Text::kAlignment);
            if (block == nullptr)
                return;
            buffer.m_begin = static_cast<Unit *>(block);
            buffer.m_capacity = static_cast<int>(size / sizeof(Unit));
        }
        std::memmove(buffer.m_begin, text, Text::BytesFor(length));
        buffer.m_begin[length] = 0;
        buffer.m_length = length;
    }

    // The block an empty buffer takes: 4 bytes of narrow text, the best
    // block for 2 bytes of wide text (room for 2 units either way).
    static unsigned EmptyBlockBytes()
    {
        if constexpr (sizeof(Unit) == 1)
            return 4;
        else
            return QzMemory::GetBestBlockSize(2);
    }

    // The empty text, keeping the block, or taking an empty one.
    static void SetEmptyString(Buffer &buffer)
    {
        if (buffer.m_begin == nullptr) {
            unsigned size = EmptyBlockBytes();
            void *block = QzMemory::Alloc(size, Text::kAlignment);
            if (block == nullptr)
                return;
            buffer.m_begin = static_cast<Unit *>(block);
            buffer.m_capacity = static_cast<int>(size / sizeof(Unit));
        }
        buffer.m_begin[0] = 0;
        buffer.m_length = 0;
    }

    // Appends `length` units of `text` (all of it for a negative length).
    // Reserves one unit more than needed, as every append path does: the
    // next single-unit append then rarely grows the block.
    static void Append(Buffer &buffer, Unit const *text, int length)
    {
        if (text == nullptr || length == 0)
            return;
        if (length < 0)
            length = Text::Length(text);
        if (length == 0)
            return;
        // The text may lie in this very block, which Reserve may move.
        bool is_own = Text::IsWithin(text, buffer.m_begin, buffer.m_capacity);
        std::ptrdiff_t offset = is_own ? text - buffer.m_begin : 0;
        if (!Reserve(buffer, buffer.m_length + 1 + length))
            return;
        if (is_own)
            text = buffer.m_begin + offset;
        std::memmove(buffer.m_begin + buffer.m_length, text, Text::BytesFor(length));
        buffer.m_length += length;
        buffer.m_begin[buffer.m_length] = 0;
    }

    static void AppendUnit(Buffer &buffer, Unit unit)
    {
        if (!Reserve(buffer, buffer.m_length + 2))
            return;
        buffer.m_begin[buffer.m_length] = unit;
        ++buffer.m_length;
        buffer.m_begin[buffer.m_length] = 0;
    }

    // Stores the unit without checking the index; a nul shortens the text.
    static void SetAt(Buffer &buffer, int index, Unit unit)
    {
        buffer.m_begin[index] = unit;
        if (unit == 0)
            buffer.m_length = Text::Length(buffer.m_begin);
    }

    // Takes the length of text written directly into the block: the given
    // one, or for a negative one the first nul within the block; clamped to
    // the capacity, and terminated where room is left.
    static void EndEditBuffer(Buffer &buffer, int length)
    {
        if (buffer.m_begin == nullptr) {
            buffer.m_length = 0;
            return;
        }
        if (length < 0)
            length = Text::LengthWithin(buffer.m_begin, buffer.m_capacity);
        if (length > buffer.m_capacity)
            length = buffer.m_capacity;
        buffer.m_length = length;
        if (length < buffer.m_capacity)
            buffer.m_begin[length] = 0;
    }

    // One truncating format into the present block. The length becomes the
    // position of the first nul; the result is the formatter's (-1 if cut).
    template <typename Formatter>
    static int FormatV(Buffer &buffer, Unit const *format, va_list args, Formatter formatter)
    {
        int result = -1;
        if (buffer.m_begin != nullptr)
            result = formatter(buffer.m_begin, static_cast<std::size_t>(buffer.m_capacity), format,
                               args);
        buffer.m_length =
            buffer.m_begin == nullptr ? 0 : Text::LengthWithin(buffer.m_begin, buffer.m_capacity);
        return result;
    }

    // Formats into a block of at least 101 units, growing one size class at
    // a time until the output fits or the block exceeds the cap. A null
    // format releases the block.
    template <typename Formatter>
    static void Format(Buffer &buffer, Unit const *format, va_list args, Formatter formatter)
    {
        if (format == nullptr) {
            Release(buffer);
            return;
        }
        if (buffer.m_capacity < kFormatStartUnits && !Reserve(buffer, kFormatStartUnits - 1))
            return;
        for (;;) {
            va_list pass;
            va_copy(pass, args);
            int result = FormatV(buffer, format, pass, formatter);
            va_end(pass);
            bool fits = result >= 0 && result < buffer.m_capacity;
            if (fits || buffer.m_capacity > kFormatMaxUnits)
                return;
            if (!Reserve(buffer, buffer.m_capacity))
                return;
        }
    }

    // The units from `start` up to `end` of `text` (`length` units) into
    // `out`. A null text releases out; a bad range makes it empty. `text` may
    // be out's own text: the range then moves down within the same block.
    static void ExtractSubString(Unit const *text, int length, int start, int end, Buffer *out)
    {
        if (text == nullptr) {
            if (out != nullptr)
                Release(*out);
            return;
        }
        if (start < 0 || end > length || start >= end) {
            if (out != nullptr)
                SetEmptyString(*out);
            return;
        }
        if (out == nullptr)
            return;
        int count = end - start;
        // count < length < capacity when text is out's own, so no move here.
        if (!Reserve(*out, count))
            return;
        std::memmove(out->m_begin, text + start, Text::BytesFor(count));
        out->m_begin[count] = 0;
        out->m_length = count;
    }

    // Replaces the first (or, with `all`, every) occurrence of `old_text` at
    // or after `from`. New text is never searched again. A null `new_text`
    // deletes. Returns 1 if anything was replaced.
    static int Replace(Buffer &buffer, Unit const *old_text, Unit const *new_text, int from,
                       int all)
    {
        int old_length = Text::Length(old_text);
        if (old_length == 0 || from < 0 || from >= buffer.m_length)
            return 0;
        Unit const *match = Text::Search(buffer.m_begin + from, old_text);
        if (match == nullptr)
            return 0;
        int new_length = Text::Length(new_text);
        Buffer result;
        if (!Reserve(result,
                     std::max(buffer.m_length + new_length - old_length, buffer.m_capacity - 1)))
            return 0;
        Unit const *rest = buffer.m_begin;
        while (match != nullptr) {
            Append(result, rest, static_cast<int>(match - rest));
            Append(result, new_text, new_length);
            rest = match + old_length;
            match = all ? Text::Search(rest, old_text) : nullptr;
        }
        Append(result, rest, static_cast<int>(buffer.m_begin + buffer.m_length - rest));
        Swap(buffer, result);  // result now holds the old block and releases it
        return 1;
    }

    // Head before `start`, then `text`, then the tail from `end`. The range
    // is clamped to the text.
    static void ReplaceSubString(Buffer &buffer, int start, int end, Unit const *text)
    {
        start = std::clamp(start, 0, buffer.m_length);
        end = std::clamp(end, start, buffer.m_length);
        int text_length = Text::Length(text);
        Buffer result;
        if (!Reserve(result, std::max(buffer.m_length + text_length - (end - start),
                                      buffer.m_capacity - 1)))
            return;
        Append(result, buffer.m_begin, start);
        Append(result, text, text_length);
        Append(result, buffer.m_begin + end, buffer.m_length - end);
        Swap(buffer, result);
    }

    // Removes leading units for which is_space holds, moving the text down.
    template <typename IsSpace>
    static void TrimLeft(Buffer &buffer, IsSpace is_space)
    {
        if (buffer.m_begin == nullptr)
            return;
        int skip = 0;
        while (skip < buffer.m_length && is_space(buffer.m_begin[skip]))
            ++skip;
        if (skip == 0)
            return;
        buffer.m_length -= skip;
        std::memmove(buffer.m_begin, buffer.m_begin + skip,
                     Text::BytesFor(static_cast<LtInt64>(buffer.m_length) + 1));
    }

    // Removes trailing units for which is_space holds, never touching the
    // first `kept` units.
    template <typename IsSpace>
    static void TrimRight(Buffer &buffer, IsSpace is_space, int kept)
    {
        if (buffer.m_begin == nullptr)
            return;
        int end = buffer.m_length;
        while (end > kept && is_space(buffer.m_begin[end - 1]))
            --end;
        buffer.m_length = end;
        buffer.m_begin[end] = 0;
    }

    // Copies the units of `text` for which keep holds into `out`. A null
    // text releases out. `text` may be out's own text.
    template <typename Keep>
    static void CopyKept(Unit const *text, Buffer *out, Keep keep)
    {
        if (out == nullptr)
            return;
        if (text == nullptr) {
            Release(*out);
            return;
        }
        Buffer result;
        if (!Reserve(result, Text::Length(text)))
            return;
        int length = 0;
        for (; *text != 0; ++text) {
            if (keep(*text))
                result.m_begin[length++] = *text;
        }
        result.m_begin[length] = 0;
        result.m_length = length;
        Swap(*out, result);
    }

    // Formats `value` with "%<width>.<precision>f" through the buffer's own
    // Format, so the thread's decimal mark applies. A negative width
    // left-justifies, as in printf; without `has_width` there is none. A
    // negative precision counts as 0.
    static void FormatFixed(Buffer &buffer, double value, int precision, bool has_width, int width)
    {
        Unit format[32];
        int at = 0;
        format[at++] = '%';
        if (has_width)
            at = AppendDecimal(format, at, width);
        format[at++] = '.';
        at = AppendDecimal(format, at, precision < 0 ? 0 : precision);
        format[at++] = 'f';
        format[at] = 0;
        buffer.Format(format, value);
    }

    // Shows at least `significant` digits of a value too small for
    // `precision` decimals by adding decimals, then drops trailing zeros
    // beyond the requested precision.
    static void FormatLocalizedFloat(Buffer &buffer, double value, int precision, int significant)
    {
        bool is_extended = false;
        int decimals = LocalizedDecimals(value, precision, significant, &is_extended);
        FormatFixed(buffer, value, decimals, /*has_width=*/false, 0);
        if (!is_extended || precision < 1 || buffer.m_begin == nullptr)
            return;
        for (int stripped = 0; stripped < precision && buffer.m_length > 0; ++stripped) {
            if (buffer.m_begin[buffer.m_length - 1] != '0')
                break;
            buffer.m_begin[--buffer.m_length] = 0;
        }
    }

private:
    // Writes `value` in decimal at `out[at]`; returns the position after it.
    static int AppendDecimal(Unit *out, int at, int value)
    {
        LtInt64 magnitude = value;
        if (magnitude < 0) {
            out[at++] = '-';
            magnitude = -magnitude;
        }
        Unit digits[12];
        int count = 0;
        do {
            digits[count++] = static_cast<Unit>('0' + magnitude % 10);
            magnitude /= 10;
        } while (magnitude > 0);
        while (count > 0)
            out[at++] = digits[--count];
        return at;
    }

    // The decimals for FormatLocalizedFloat. For a significant display of a
    // value above 1e-14, count how many more decimals than `precision` it
    // takes before 0.1^(precision + 1) is no longer above the value (up to 20
    // decimals in all); if any, the result is that count plus `precision`
    // again, so the first non-zero digits show with `precision` more.
    static int LocalizedDecimals(double value, int precision, int significant, bool *is_extended)
    {
        int decimals = precision;
        double magnitude = std::fabs(value);
        if (significant == 0 || !(magnitude > 1e-14))
            return decimals;
        double threshold = std::pow(0.1, precision + 1);
        int limit = 20 - precision;
        if (precision >= limit)
            return decimals;
        while (threshold > magnitude && decimals < limit) {
            ++decimals;
            threshold *= 0.1;
            *is_extended = true;
        }
        if (*is_extended)
            decimals += precision;
        return decimals;
    }
};
