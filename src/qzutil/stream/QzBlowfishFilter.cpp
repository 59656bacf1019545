// QzBlowfishFilter.cpp: the Blowfish cipher, its key schedule, and the
// framing of the filter.

#include "qzutil/stream/QzBlowfishFilter.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/stream/QzChecksum.h"
#include "qzutil/stream/internal/QzBlowfishTables.h"

static QzComponent g_blowfish_component;

static constexpr int kPlainBlockSize = 65536;  // bytes per frame at most
static constexpr int kCipherBlock = 8;         // bytes: two 32-bit words
static constexpr int kMaxKeyBytes = 56;        // the published limit of the key
static constexpr int kRounds = 16;
// Blocks encrypted side by side. The rounds of one block form a single chain
// of dependent loads; blocks of ECB are independent, so the processor can
// overlap four chains.
static constexpr std::size_t kLanes = 4;

using SBoxes = LtNat32 const (*)[kBlowfishSWords];

// The round function: the four bytes of `half`, high byte first, through the
// four S-boxes.
static inline LtNat32 Mix(SBoxes s, LtNat32 half)
{
    return ((s[0][half >> 24] + s[1][(half >> 16) & 0xFF]) ^ s[2][(half >> 8) & 0xFF]) +
           s[3][half & 0xFF];
}

// The 16 rounds on each lane's block, two rounds a step (so that the halves
// need no swap), then the output whitening. With P backwards this decrypts.
template <std::size_t... Lane>
static inline void CryptLanes(LtNat32 const *p, SBoxes s, LtNat32 *left, LtNat32 *right,
                              std::index_sequence<Lane...>)
{
    for (int round = 0; round < kRounds; round += 2) {
        LtNat32 const even = p[round];
        LtNat32 const odd = p[round + 1];
        ((left[Lane] ^= even, right[Lane] ^= Mix(s, left[Lane])), ...);
        ((right[Lane] ^= odd, left[Lane] ^= Mix(s, right[Lane])), ...);
    }
    LtNat32 const last_left = p[kRounds];
    LtNat32 const last_right = p[kRounds + 1];
    ((left[Lane] ^= last_left, right[Lane] ^= last_right, std::swap(left[Lane], right[Lane])), ...);
}

// `Lanes` blocks from `in` to `out` (which may be the same); the words lie
// little-endian, left first, at any alignment.
template <std::size_t Lanes>
static inline void CryptBlocks(LtNat32 const *p, SBoxes s, unsigned char const *in,
                               unsigned char *out)
{
    LtNat32 left[Lanes];
    LtNat32 right[Lanes];
    for (std::size_t i = 0; i < Lanes; ++i) {
        std::memcpy(&left[i], in + kCipherBlock * i, 4);
        std::memcpy(&right[i], in + kCipherBlock * i + 4, 4);
    }
    CryptLanes(p, s, left, right, std::make_index_sequence<Lanes>());
    for (std::size_t i = 0; i < Lanes; ++i) {
        std::memcpy(out + kCipherBlock * i, &left[i], 4);
        std::memcpy(out + kCipherBlock * i + 4, &right[i], 4);
    }
}

// `bytes` (a multiple of 8) from `in` to `out`, kLanes blocks at a time.
static void CryptRun(LtNat32 const *p, SBoxes s, unsigned char const *in, unsigned char *out,
                     int bytes)
{
    std::size_t blocks = static_cast<std::size_t>(bytes / kCipherBlock);
    for (; blocks >= kLanes; blocks -= kLanes) {
        CryptBlocks<kLanes>(p, s, in, out);
        in += kLanes * kCipherBlock;
        out += kLanes * kCipherBlock;
    }
    for (; blocks > 0; --blocks) {
        CryptBlocks<1>(p, s, in, out);
        in += kCipherBlock;
        out += kCipherBlock;
    }
}

static int RoundUpToBlock(int bytes)
{
    return (bytes + kCipherBlock - 1) / kCipherBlock * kCipherBlock;
}

QzBlowfishFilter::QzBlowfishFilter() : m_block_size(kPlainBlockSize)
{
    Init(0, nullptr);
}

QzBlowfishFilter::QzBlowfishFilter(char const *key) : m_block_size(kPlainBlockSize)
{
    InitKey(key);
}

QzBlowfishFilter::QzBlowfishFilter(int length, unsigned char const *key)
    : m_block_size(kPlainBlockSize)
{
    Init(length, key);
}

// A virtual call here would reach only this class's DeallocBlock: a subclass
// that places its blocks elsewhere releases them in its own destructor.
QzBlowfishFilter::~QzBlowfishFilter()
{
    if (m_buffer)
        QzStreamSink::DeallocBlock(m_buffer, m_block_size);
}

char const *QzBlowfishFilter::GetName() const
{
    return "liblowfish";
}

void QzBlowfishFilter::InitKey(char const *key)
{
    Init(key ? static_cast<int>(std::strlen(key)) : 0,
         reinterpret_cast<unsigned char const *>(key));
}

void QzBlowfishFilter::InitKey(int length, unsigned char const *key)
{
    Init(length, key);
}

void QzBlowfishFilter::Init(int length, unsigned char const *key)
{
    static_assert(kPWords == kBlowfishPWords && kSBoxes == kBlowfishSBoxes &&
                      kSWords == kBlowfishSWords,
                  "the class's tables have the generated shape");
    std::memcpy(m_p, kBlowfishInitialP, sizeof m_p);
    std::memcpy(m_s, kBlowfishInitialS, sizeof m_s);
    int const key_bytes = key ? std::min(length, kMaxKeyBytes) : 0;
    if (key_bytes > 0) {
        // The key, cyclically and big-endian, into each P word.
        int next = 0;
        for (LtNat32 &word : m_p) {
            LtNat32 key_word = 0;
            for (int i = 0; i < 4; ++i) {
                key_word = key_word << 8 | key[next];
                next = (next + 1) % key_bytes;
            }
            word ^= key_word;
        }
        // Then every P and S word in turn is replaced by the next encryption
        // of a running block that starts at zero, under the tables as they
        // stand at that moment.
        LtNat32 left = 0;
        LtNat32 right = 0;
        auto replace = [&](LtNat32 *words, int count) {
            for (int i = 0; i < count; i += 2) {
                Encrypt2(&left, &right);
                words[i] = left;
                words[i + 1] = right;
            }
        };
        replace(m_p, kPWords);
        for (LtNat32 *box : m_s)
            replace(box, kSWords);
    }
    std::reverse_copy(m_p, m_p + kPWords, m_p_reversed);
}

void QzBlowfishFilter::Encrypt2(unsigned *left, unsigned *right) const
{
    CryptLanes(m_p, m_s, left, right, std::make_index_sequence<1>());
}

void QzBlowfishFilter::Decrypt2(unsigned *left, unsigned *right) const
{
    CryptLanes(m_p_reversed, m_s, left, right, std::make_index_sequence<1>());
}

int QzBlowfishFilter::WriteBegin(QzWriteStream const *)
{
    if (m_buffer == nullptr)
        m_buffer = AllocBlock(m_block_size);
    return m_buffer != nullptr;
}

int QzBlowfishFilter::WriteLock(unsigned char **buffer, int *size)
{
    if (m_buffer == nullptr)
        return 0;
    *buffer = m_buffer;
    *size = m_block_size;
    return 1;
}

int QzBlowfishFilter::SinkWriteLock(unsigned char **buffer, int *size)
{
    QzStreamSink *next = GetSink();
    if (next == nullptr || !next->WriteLock(buffer, size))
        return 0;
    return *size >= kCipherBlock && *size % kCipherBlock == 0;
}

int QzBlowfishFilter::WriteProcess(int count)
{
    if (m_buffer == nullptr || count < 0 || count > m_block_size)
        return 0;
    if (count == 0)
        return 1;
    unsigned char *out = nullptr;
    int room = 0;
    if (!SinkWriteLock(&out, &room))
        return 0;
    unsigned header[2] = {static_cast<unsigned>(count),
                          QzChecksum::Adler32(m_buffer, static_cast<std::size_t>(count))};
    Encrypt2(&header[0], &header[1]);
    std::memcpy(out, header, kCipherBlock);
    int const padded = RoundUpToBlock(count);
    std::memset(m_buffer + count, 0, static_cast<std::size_t>(padded - count));
    int used = kCipherBlock;  // of the present lend
    for (int done = 0;;) {
        int const now = std::min(room - used, padded - done);
        CryptRun(m_p, m_s, m_buffer + done, out + used, now);
        done += now;
        used += now;
        if (done == padded)
            break;
        // The lend is full: it goes, and the next one is taken.
        if (!GetSink()->WriteProcess(used) || !SinkWriteLock(&out, &room))
            return 0;
        used = 0;
    }
    return GetSink()->WriteProcess(used);
}

int QzBlowfishFilter::WriteEnd()
{
    m_read_cursor = nullptr;
    unsigned char *buffer = m_buffer;
    m_buffer = nullptr;
    return buffer ? DeallocBlock(buffer, m_block_size) : 1;
}

int QzBlowfishFilter::ReadBegin(QzReadStream const *)
{
    m_read_cursor = nullptr;
    if (m_buffer == nullptr)
        m_buffer = AllocBlock(m_block_size);
    return m_buffer != nullptr;
}

QzFileURL::Status QzBlowfishFilter::SinkReadLock(unsigned char const **buffer, int *size)
{
    QzStreamSink *next = GetSink();
    if (next == nullptr || next->ReadLock(buffer, size) != QzFileURL::eSTATUS_OK)
        return QzFileURL::eSTATUS_ERROR;
    if (*buffer == nullptr || *size <= 0) {
        *buffer = nullptr;
        *size = 0;
        return QzFileURL::eSTATUS_OK;
    }
    if (*size < kCipherBlock || *size % kCipherBlock != 0)
        return QzFileURL::eSTATUS_ERROR;
    return QzFileURL::eSTATUS_OK;
}

QzFileURL::Status QzBlowfishFilter::ReadFrame()
{
    if (m_buffer == nullptr)
        return QzFileURL::eSTATUS_ERROR;
    unsigned char const *in = nullptr;
    int available = 0;
    QzFileURL::Status const status = SinkReadLock(&in, &available);
    if (status != QzFileURL::eSTATUS_OK || in == nullptr)
        return status;
    unsigned header[2];
    std::memcpy(header, in, kCipherBlock);
    Decrypt2(&header[0], &header[1]);
    if (header[0] == 0 || header[0] > static_cast<unsigned>(m_block_size))
        return QzFileURL::eSTATUS_ERROR;
    int const length = static_cast<int>(header[0]);
    int const padded = RoundUpToBlock(length);
    int used = kCipherBlock;  // of the present lend
    for (int done = 0;;) {
        int const now = std::min(available - used, padded - done);
        CryptRun(m_p_reversed, m_s, in + used, m_buffer + done, now);
        done += now;
        used += now;
        if (!GetSink()->ReadProcess(used))
            return QzFileURL::eSTATUS_ERROR;
        if (done == padded)
            break;
        // The frame goes on in the next lend; the data must not end here.
        if (SinkReadLock(&in, &available) != QzFileURL::eSTATUS_OK || in == nullptr)
            return QzFileURL::eSTATUS_ERROR;
        used = 0;
    }
    if (QzChecksum::Adler32(m_buffer, static_cast<std::size_t>(length)) != header[1])
        return QzFileURL::eSTATUS_ERROR;
    m_read_cursor = m_buffer;
    m_read_limit = length;
    return QzFileURL::eSTATUS_OK;
}

QzFileURL::Status QzBlowfishFilter::ReadLock(unsigned char const **buffer, int *size)
{
    if (m_read_cursor == nullptr) {
        QzFileURL::Status const status = ReadFrame();
        if (status != QzFileURL::eSTATUS_OK)
            return status;
        if (m_read_cursor == nullptr) {
            *buffer = nullptr;
            *size = 0;
            return QzFileURL::eSTATUS_OK;
        }
    }
    *buffer = m_read_cursor;
    *size = m_read_limit - static_cast<int>(m_read_cursor - m_buffer);
    return QzFileURL::eSTATUS_OK;
}

int QzBlowfishFilter::ReadProcess(int count)
{
    if (count < 0)
        return 0;
    if (m_read_cursor == nullptr)
        return count == 0;
    if (count > m_read_limit - static_cast<int>(m_read_cursor - m_buffer))
        return 0;
    m_read_cursor += count;
    if (m_read_cursor == m_buffer + m_read_limit)
        m_read_cursor = nullptr;
    return 1;
}

int QzBlowfishFilter::ReadEnd()
{
    m_read_cursor = nullptr;
    return 1;
}

void QzBlowfishFilter::Initialise()
{
    g_blowfish_component.Initialise("QzBlowfishFilter", QZ_COMPONENT_INFO);
}

void QzBlowfishFilter::Terminate()
{
    g_blowfish_component.Terminate();
}

int QzBlowfishFilter::IsInitialised()
{
    return g_blowfish_component.IsInitialised();
}
