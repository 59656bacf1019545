// QzChecksum.cpp: Adler-32 over runs of bytes, sixteen lanes at a time,
// with the reduction schedule kept exactly.

#include "qzutil/stream/QzChecksum.h"

#include <algorithm>
#include <cstring>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

static QzComponent g_checksum_component;

static constexpr unsigned kModulus = 65521;  // the largest prime below 2^16

// Generic vectors of the compiler (GCC and Clang alike): SSE2 registers on
// x86-64, NEON on aarch64, with no intrinsics of either.
typedef LtNat8 Bytes16 __attribute__((vector_size(16)));
typedef LtNat16 Units8 __attribute__((vector_size(16)));
typedef LtNat32 Words4 __attribute__((vector_size(16)));

static constexpr std::size_t kLanes = 16;  // bytes per stride: lane j takes bytes j, j + 16, ...
// Strides summed in 16-bit lanes before they are widened: a lane's weighted
// sum reaches at most 255 * (1 + 2 + ... + 16) = 34,680.
static constexpr std::size_t kWindowStrides = 16;

template <typename To, typename From>
static To BitCast(From const &from)
{
    static_assert(sizeof(To) == sizeof(From), "same size");
    To to;
    std::memcpy(&to, &from, sizeof to);
    return to;
}

// Zero-extends bytes 0-7 or 8-15 to 16 bits by interleaving them with
// zeros, which little-endian order turns into the wider values.
static Units8 LowBytes(Bytes16 bytes)
{
    Bytes16 const zero = {};
    return BitCast<Units8>(__builtin_shufflevector(bytes, zero, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20,
                                                   5, 21, 6, 22, 7, 23));
}

static Units8 HighBytes(Bytes16 bytes)
{
    Bytes16 const zero = {};
    return BitCast<Units8>(__builtin_shufflevector(bytes, zero, 8, 24, 9, 25, 10, 26, 11, 27, 12,
                                                   28, 13, 29, 14, 30, 15, 31));
}

static Words4 LowUnits(Units8 units)
{
    Units8 const zero = {};
    return BitCast<Words4>(__builtin_shufflevector(units, zero, 0, 8, 1, 9, 2, 10, 3, 11));
}

static Words4 HighUnits(Units8 units)
{
    Units8 const zero = {};
    return BitCast<Words4>(__builtin_shufflevector(units, zero, 4, 12, 5, 13, 6, 14, 7, 15));
}

// Adds `size` bytes to the sums *a and *b with no reduction: the caller
// keeps `size` within the bytes left before the next one, which is what
// keeps the exact values below 2^32.
//
// For n bytes x_0 .. x_{n-1}, one at a time gives
//     a' = a + sum x_i,   b' = b + n a + sum (n - i) x_i.
// With n = 16 K and x_i in lane j = i mod 16 at stride k = i div 16, the
// weight n - i is 16 (K - k) - j. Each lane keeps S_j, the sum of its bytes,
// and W_j, the sum of S_j after each stride (which counts the byte of stride
// k K - k times); then sum (n - i) x_i = 16 sum W_j - sum j S_j. Unsigned
// arithmetic wraps, so the terms may be taken in any order as long as the
// exact result fits, which the schedule guarantees.
static void AddRun(unsigned *a, unsigned *b, unsigned char const *bytes, std::size_t size)
{
    std::size_t const strides = size / kLanes;
    if (strides > 0) {
        Words4 lane_sums[4] = {};      // S_j, lanes 4q to 4q + 3 in element q
        Words4 lane_weighted[4] = {};  // W_j, likewise
        for (std::size_t done = 0; done < strides;) {
            std::size_t const window = std::min(strides - done, kWindowStrides);
            Units8 window_sums[2] = {};  // lanes 0-7 and 8-15
            Units8 window_weighted[2] = {};
            for (std::size_t stride = 0; stride < window; ++stride) {
                Bytes16 loaded;
                std::memcpy(&loaded, bytes, sizeof loaded);
                bytes += kLanes;
                window_sums[0] += LowBytes(loaded);
                window_sums[1] += HighBytes(loaded);
                window_weighted[0] += window_sums[0];
                window_weighted[1] += window_sums[1];
            }
            // Over the window, W_j grows by its length times S_j before it,
            // plus the window's own weighted sum.
            LtNat32 const length = static_cast<LtNat32>(window);
            for (int half = 0; half < 2; ++half) {
                Words4 *sums = &lane_sums[2 * half];
                Words4 *weighted = &lane_weighted[2 * half];
                weighted[0] += length * sums[0] + LowUnits(window_weighted[half]);
                weighted[1] += length * sums[1] + HighUnits(window_weighted[half]);
                sums[0] += LowUnits(window_sums[half]);
                sums[1] += HighUnits(window_sums[half]);
            }
            done += window;
        }
        unsigned sum = 0;
        unsigned weighted = 0;
        unsigned lane_weighted_sum = 0;  // sum j S_j
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            unsigned const lane_sum = lane_sums[lane / 4][lane % 4];
            sum += lane_sum;
            weighted += lane_weighted[lane / 4][lane % 4];
            lane_weighted_sum += static_cast<unsigned>(lane) * lane_sum;
        }
        unsigned const lanes = static_cast<unsigned>(kLanes);
        *b += static_cast<unsigned>(strides) * lanes * *a + lanes * weighted - lane_weighted_sum;
        *a += sum;
    }
    for (std::size_t i = 0; i < size % kLanes; ++i) {
        *a += bytes[i];
        *b += *a;
    }
}

void QzChecksum::Begin()
{
    m_a = kInitialA;
    m_b = 0;
    m_count = kReductionInterval;
}

void QzChecksum::Clear()
{
    Begin();
}

void QzChecksum::AddNat8Array(unsigned char const *bytes, unsigned count)
{
    AddBytes(bytes, count);
}

void QzChecksum::AddBytes(void const *bytes, std::size_t count)
{
    auto const *next = static_cast<unsigned char const *>(bytes);
    while (count > 0) {
        std::size_t const run = std::min(count, static_cast<std::size_t>(m_count));
        AddRun(&m_a, &m_b, next, run);
        next += run;
        count -= run;
        m_count -= static_cast<int>(run);
        if (m_count == 0) {
            m_a %= kModulus;
            m_b %= kModulus;
            m_count = kReductionInterval;
        }
    }
}

void QzChecksum::AddText(void const *units, std::size_t length, std::size_t unit_size)
{
    if (units == nullptr) {
        unsigned char const zero = 0;
        AddBytes(&zero, 1);
        return;
    }
    AddBytes(units, length * unit_size);
}

void QzChecksum::AddString(char const *text)
{
    AddText(text, text ? std::strlen(text) : 0, 1);
}

void QzChecksum::AddString(QzString const &text)
{
    AddText(text.GetString(), static_cast<std::size_t>(text.GetLength()), 1);
}

void QzChecksum::AddString(QzStringBuffer const &text)
{
    AddText(text.GetString(), static_cast<std::size_t>(text.GetLength()), 1);
}

void QzChecksum::AddWideString(LtWChar const *text)
{
    std::size_t const length = text ? static_cast<std::size_t>(QzWideString::GetLength(text)) : 0;
    AddText(text, length, sizeof(LtWChar));
}

void QzChecksum::AddWideString(QzWideString const &text)
{
    AddText(text.GetString(), static_cast<std::size_t>(text.GetLength()), sizeof(LtWChar));
}

void QzChecksum::AddWideString(QzWideStringBuffer const &text)
{
    AddText(text.GetString(), static_cast<std::size_t>(text.GetLength()), sizeof(LtWChar));
}

unsigned QzChecksum::End()
{
    if (m_count != kReductionInterval) {
        m_a %= kModulus;
        m_b %= kModulus;
    }
    return m_b << 16 | m_a;
}

unsigned QzChecksum::Adler32(unsigned char const *bytes, std::size_t count)
{
    QzChecksum checksum;
    checksum.AddBytes(bytes, count);
    return checksum.End();
}

void QzChecksum::Initialise()
{
    if (!g_checksum_component.Initialise("QzChecksum", QZ_COMPONENT_INFO))
        return;
    QzError::Initialise();
}

void QzChecksum::Terminate()
{
    if (!g_checksum_component.Terminate())
        return;
    QzError::Terminate();
}

int QzChecksum::IsInitialised()
{
    return g_checksum_component.IsInitialised();
}
