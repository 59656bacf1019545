// QzBlowfishFilter.h: the stream filter that encrypts, frames and seals each
// block that passes through it, and the Blowfish cipher it runs on.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"
#include "qzutil/stream/QzStreamFilter.h"

// Blowfish with 16 rounds and the published key schedule, over blocks of
// two 32-bit words. In memory a block is two little-endian words, left
// first; so a block of bytes differs from the published test vectors (which
// read big-endian words) by the byte order within each word.
//
// Each WriteProcess of L bytes (1 to 65,536) becomes one frame on the next
// sink:
//   8 bytes        the header (L, Adler-32 of the L plain bytes), encrypted;
//   L rounded up   the plain bytes padded with zeros to a multiple of 8,
//   to 8 bytes     encrypted 8 bytes at a time, each block alone (ECB).
// Reading decrypts a frame at a time and checks L and the Adler-32, so a
// wrong key or a damaged frame fails at once with status 2.
//
// The next sink must lend and accept multiples of 8 bytes; a frame may be
// spread over several of its lends.
//
// Ownership: owns its buffer (AllocBlock, one block of GetBlockSize bytes)
//            from WriteBegin to WriteEnd, or from ReadBegin until the
//            destructor. The next sink is borrowed (see QzStreamFilter).
// Threads:   one thread at a time, as QzStreamSink.
// Invariant: with no key (length 0) the cipher is unkeyed and the filter
//            must not be used.
class QZUTIL_API QzBlowfishFilter : public QzStreamFilter {
public:
    // No key: set one with InitKey before use.
    QzBlowfishFilter();
    // The key is all the bytes of `key` (none if null), cut at 56.
    explicit QzBlowfishFilter(char const *key);
    QzBlowfishFilter(int length, unsigned char const *key);
    ~QzBlowfishFilter() override;

    // Bytes of plain data per frame at most: 65,536.
    int GetBlockSize() const { return m_block_size; }
    // "liblowfish", the word of a stream's header line.
    char const *GetName() const override;

    // Each sets the key schedule from the given key; the three differ only
    // in how the key is passed. At most the first 56 bytes count; a length
    // of 0 (or less) leaves the cipher unkeyed.
    void InitKey(char const *key);
    void InitKey(int length, unsigned char const *key);
    void Init(int length, unsigned char const *key);

    // One block in place, left and right words.
    void Encrypt2(unsigned *left, unsigned *right) const;
    void Decrypt2(unsigned *left, unsigned *right) const;

    // Allocates the buffer; 0 if that fails.
    int WriteBegin(QzWriteStream const *stream) override;
    // Lends the whole buffer, always; 0 before WriteBegin.
    int WriteLock(unsigned char **buffer, int *size) override;
    // Sends the first `count` bytes of the buffer to the next sink as one
    // frame; 0 sends nothing. 0 for a count below 0 or above the block
    // size, and for any failure of the next sink.
    int WriteProcess(int count) override;
    // Releases the buffer.
    int WriteEnd() override;

    // Allocates the buffer if none is held; 0 if that fails.
    int ReadBegin(QzReadStream const *stream) override;
    // Lends the rest of the frame in hand, or decrypts the next one. End of
    // data: null, 0 and status 0. Status 2 for every failure: of the next
    // sink, a lend not a multiple of 8, a frame cut short, a length out of
    // range or an Adler-32 that does not match.
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override;
    // 0 past the end of the frame in hand.
    int ReadProcess(int count) override;
    int ReadEnd() override;

    // The counted component "QzBlowfishFilter", with no dependencies.
    static void Initialise();
    static void Terminate();
    static int IsInitialised();

protected:
    // Locks the next sink for writing; 0 if it refuses or lends less than
    // 8 bytes or not a multiple of 8.
    [[nodiscard]] int SinkWriteLock(unsigned char **buffer, int *size);
    // Locks the next sink for reading. At the end of its data: null, 0 and
    // status 0. Status 2 if it fails or lends less than 8 bytes or not a
    // multiple of 8.
    [[nodiscard]] QzFileURL::Status SinkReadLock(unsigned char const **buffer, int *size);

private:
    static constexpr int kPWords = 18;
    static constexpr int kSBoxes = 4;
    static constexpr int kSWords = 256;

    // Decrypts the next frame into the buffer and lends it from the start;
    // leaves the cursor null at the end of data.
    [[nodiscard]] QzFileURL::Status ReadFrame();

    int m_block_size;
    unsigned char *m_buffer = nullptr;       // owned; null while none is held
    unsigned char *m_read_cursor = nullptr;  // in m_buffer; null while no frame is held
    int m_read_limit = 0;                    // plain bytes of the frame in hand
    LtNat32 m_p[kPWords];
    LtNat32 m_p_reversed[kPWords];  // m_p backwards: decryption is encryption with it
    LtNat32 m_s[kSBoxes][kSWords];
};
