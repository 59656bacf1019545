// LtTypes.h: the library's fixed-width basic types. Every layer, the
// platform layer included, may include this header: it holds no code.
#pragma once

#include <cstdint>

using LtInt8 = std::int8_t;
using LtInt16 = std::int16_t;
using LtInt32 = std::int32_t;
using LtInt64 = std::int64_t;
using LtNat8 = std::uint8_t;
using LtNat16 = std::uint16_t;
using LtNat32 = std::uint32_t;
using LtNat64 = std::uint64_t;
using LtSingle = float;
using LtDouble = double;
using LtFloat = double;

// One UTF-16 code unit. All wide text of the library is UTF-16 in this type,
// whatever the width of the platform's wchar_t; literals are written u"...".
using LtWChar = char16_t;

// The library's data layouts assume these; a port that breaks one must stop
// here rather than corrupt files later.
static_assert(sizeof(void *) == 8, "qzutil needs 64-bit pointers");
static_assert(sizeof(LtWChar) == 2, "LtWChar must be a 16-bit unit");
static_assert(sizeof(int) == 4, "qzutil needs a 32-bit int");
#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "qzutil supports little-endian targets only"
#endif
