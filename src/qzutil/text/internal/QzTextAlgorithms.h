// QzTextAlgorithms.h: the algorithms on raw nul-terminated text that the
// narrow and the wide text classes share, templated on the code unit (char or
// LtWChar). Internal: never installed.
#pragma once

#include <cstring>
#include <functional>
#include <type_traits>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/memory/QzMemory.h"

// Statics over text of one unit type. A null pointer is a text distinct from
// the empty one wherever the rules below say so; lengths count units.
template <typename Unit>
struct QzTextAlgorithms {
    static_assert(std::is_same_v<Unit, char> || std::is_same_v<Unit, LtWChar>,
                  "text comes in 8-bit and 16-bit units only");

    // Text blocks need no alignment beyond the allocator's minimum.
    static constexpr QzMemory::Alignment kAlignment = 1;

    // The value of a unit for ordering and case: narrow text by its unsigned
    // byte, as the C library's ctype and strcmp take it.
    static unsigned UnitValue(Unit unit)
    {
        if constexpr (sizeof(Unit) == 1)
            return static_cast<unsigned char>(unit);
        else
            return unit;
    }

    // Bytes for `units` units, for QzMemory. A count beyond 32 bits becomes
    // 0xFFFFFFFF, which the allocator refuses as a bad size.
    static unsigned BytesFor(LtInt64 units)
    {
        LtInt64 bytes = units * static_cast<LtInt64>(sizeof(Unit));
        if (bytes < 0 || bytes > static_cast<LtInt64>(0xFFFFFFFFu))
            return 0xFFFFFFFFu;
        return static_cast<unsigned>(bytes);
    }

    // Whether `pointer` lies within the `units` units from `block`. Ordered
    // through std::less, which is total also across unrelated blocks.
    static bool IsWithin(Unit const *pointer, Unit const *block, int units)
    {
        std::less<Unit const *> before;
        return block != nullptr && !before(pointer, block) && before(pointer, block + units);
    }

    static int Length(Unit const *text)
    {
        if (text == nullptr)
            return 0;
        Unit const *end = text;
        while (*end != 0)
            ++end;
        return static_cast<int>(end - text);
    }

    // Units before the first nul, looking at no more than `limit` of them.
    static int LengthWithin(Unit const *text, int limit)
    {
        int length = 0;
        while (length < limit && text[length] != 0)
            ++length;
        return length;
    }

    // The same pointer is equal; a null is equal to no other text, not even
    // the empty one.
    static bool Equal(Unit const *a, Unit const *b)
    {
        if (a == b)
            return true;
        if (a == nullptr || b == nullptr)
            return false;
        while (*a != 0 && *a == *b) {
            ++a;
            ++b;
        }
        return *a == *b;
    }

    // Equal's null rules, over the first `count` units only.
    static bool EqualPrefix(Unit const *a, Unit const *b, int count)
    {
        if (a == b)
            return true;
        if (a == nullptr || b == nullptr)
            return false;
        for (int i = 0; i < count; ++i) {
            if (a[i] != b[i])
                return false;
            if (a[i] == 0)
                break;
        }
        return true;
    }

    // -1, 0 or 1. Null equals null and sorts before any other text; else the
    // first unit whose folded values differ decides.
    template <typename Fold>
    static int Compare(Unit const *a, Unit const *b, Fold fold)
    {
        if (a == nullptr || b == nullptr)
            return a == b ? 0 : (a == nullptr ? -1 : 1);
        for (;; ++a, ++b) {
            unsigned fa = fold(*a);
            unsigned fb = fold(*b);
            if (fa != fb)
                return fa < fb ? -1 : 1;
            if (*a == 0)
                return 0;
        }
    }

    // 1 if `prefix` is a non-empty start of a non-empty `text`.
    static int HasPrefix(Unit const *text, Unit const *prefix)
    {
        int prefix_length = Length(prefix);
        int text_length = Length(text);
        if (prefix_length == 0 || text_length == 0 || prefix_length > text_length)
            return 0;
        return std::memcmp(text, prefix, BytesFor(prefix_length)) == 0 ? 1 : 0;
    }

    // 1 if `suffix` is a non-empty end of `text`; a null text has length 0.
    static int HasSuffix(Unit const *text, Unit const *suffix)
    {
        int suffix_length = Length(suffix);
        int text_length = Length(text);
        if (suffix_length == 0 || suffix_length > text_length)
            return 0;
        Unit const *tail = text + (text_length - suffix_length);
        return std::memcmp(tail, suffix, BytesFor(suffix_length)) == 0 ? 1 : 0;
    }

    // The first occurrence of a non-empty `what` in `text`, or null.
    static Unit const *Search(Unit const *text, Unit const *what)
    {
        for (; *text != 0; ++text) {
            int i = 0;
            while (what[i] != 0 && text[i] == what[i])
                ++i;
            if (what[i] == 0)
                return text;
        }
        return nullptr;
    }

    // The first occurrence of `what` at or after `from` in `text` of
    // `length` units; null for a bad `from`, a null or empty `what`, or an
    // empty text.
    static Unit const *Find(Unit const *text, int length, Unit const *what, int from)
    {
        if (text == nullptr || from < 0 || from >= length || what == nullptr || *what == 0)
            return nullptr;
        return Search(text + from, what);
    }

    // The last occurrence of `unit` (the terminator itself for a nul), or
    // null, as strrchr answers.
    static Unit const *FindLastChar(Unit const *text, Unit unit)
    {
        if (text == nullptr)
            return nullptr;
        Unit const *last = nullptr;
        do {
            if (*text == unit)
                last = text;
        } while (*text++ != 0);
        return last;
    }

    // h = h * 5 + c over the units: a narrow unit as a signed byte (so bytes
    // from 0x80 up subtract), a wide unit as unsigned. Null and empty give 0.
    // Stored hash tables depend on these values.
    static unsigned Hash(Unit const *text)
    {
        unsigned hash = 0;
        if (text == nullptr)
            return hash;
        for (; *text != 0; ++text) {
            unsigned value;
            if constexpr (sizeof(Unit) == 1)
                value = static_cast<unsigned>(static_cast<int>(static_cast<signed char>(*text)));
            else
                value = *text;
            hash = hash * 5 + value;
        }
        return hash;
    }

    // True when every unit is below 0x80; a null text is valid.
    static bool IsValidAscii(Unit const *text)
    {
        if (text == nullptr)
            return true;
        for (; *text != 0; ++text) {
            if (UnitValue(*text) >= 0x80)
                return false;
        }
        return true;
    }

    // Replaces each unit by map(unit), in place. Null does nothing.
    template <typename Map>
    static void MapInPlace(Unit *text, Map map)
    {
        if (text == nullptr)
            return;
        for (; *text != 0; ++text)
            *text = map(*text);
    }

    // A block of exactly `length` + 1 units holding the first `length` units
    // of `text` (fewer if a nul comes first, so that Dealloc, which measures
    // the text, releases what was allocated). Null in, null out; null too if
    // the allocator has no memory.
    static Unit *AllocAndCopy(Unit const *text, int length)
    {
        if (text == nullptr)
            return nullptr;
        length = length < 0 ? Length(text) : LengthWithin(text, length);
        void *block = QzMemory::Alloc(BytesFor(static_cast<LtInt64>(length) + 1), kAlignment);
        if (block == nullptr)
            return nullptr;
        Unit *copy = static_cast<Unit *>(block);
        std::memcpy(copy, text, BytesFor(length));
        copy[length] = 0;
        return copy;
    }

    // Releases a block of AllocAndCopy: its length plus one units.
    static void Dealloc(Unit *text)
    {
        if (text != nullptr)
            QzMemory::Dealloc(text, BytesFor(static_cast<LtInt64>(Length(text)) + 1), kAlignment);
    }

    // Replaces the exact-sized text held in `*owned` by a copy of the first
    // `length` units of `source` (all of it for a negative length); a null
    // source leaves it null. The owner's own text is left alone.
    static void Assign(Unit *&owned, Unit const *source, int length)
    {
        if (source == owned)
            return;
        Unit *copy = AllocAndCopy(source, length);
        Dealloc(owned);
        owned = copy;
    }
};
