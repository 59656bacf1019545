// QzBlowfishFilter: the cipher against the published vectors and OpenSSL's
// Blowfish, the frame as it lies on the next sink (decrypted by OpenSSL),
// lends of the next sink, every way a read must fail, and whole streams
// through the filter.

#include "qzutil/stream/QzBlowfishFilter.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
// The low-level BF_ calls are deprecated in OpenSSL 3 but are the plainest
// independent Blowfish there is; the deprecation matters to this test only.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>
#include <zlib.h>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/text/QzStringBuffer.h"

#include "stream/QzSinkDriver.h"
#include "support/QzTestSupport.h"

static unsigned char const *Bytes(std::string const &bytes)
{
    return reinterpret_cast<unsigned char const *>(bytes.data());
}

namespace {

// A memory sink that lends at most `piece` bytes at a time for writing
// (from 8-aligned storage) and reading (from `data`), counts its write
// lends, and can be told to refuse locks or answer a read status.
class PieceSink : public QzStreamSink {
public:
    explicit PieceSink(int piece = 1 << 20)
        : m_piece(piece), m_scratch(static_cast<std::size_t>(piece) / 8 + 1)
    {}

    int WriteLock(unsigned char **buffer, int *size) override
    {
        if (refuse_write_lock)
            return 0;
        ++write_lends;
        *buffer = reinterpret_cast<unsigned char *>(m_scratch.data());
        *size = m_piece;
        return 1;
    }
    int WriteProcess(int count) override
    {
        data.append(reinterpret_cast<char const *>(m_scratch.data()),
                    static_cast<std::size_t>(count));
        return 1;
    }
    QzFileURL::Status ReadLock(unsigned char const **buffer, int *size) override
    {
        std::size_t const lent = std::min(data.size() - m_position, std::size_t(m_piece));
        *buffer = lent > 0 ? Bytes(data) + m_position : nullptr;
        *size = static_cast<int>(lent);
        return read_status;
    }
    int ReadProcess(int count) override
    {
        m_position += static_cast<std::size_t>(count);
        return m_position <= data.size();
    }

    std::string data;
    int write_lends = 0;
    bool refuse_write_lock = false;
    QzFileURL::Status read_status = QzFileURL::eSTATUS_OK;

private:
    int m_piece;
    std::vector<LtNat64> m_scratch;  // LtNat64 for an 8-aligned start
    std::size_t m_position = 0;
};

}  // namespace

// Streams post their errors at eDEBUG with the error id, which reaches only
// a handler registered for that very id. The memory check spans the
// components' lifetime, since QzError keeps its format buffers until then.
class QzBlowfishFilterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_bytes_at_start = QzMemory::GetDirectMemoryAllocated();
        QzStream::Initialise();
        QzBlowfishFilter::Initialise();
        m_posts.emplace("QzStream", QzStream::ErrorNotBegun);
    }
    void TearDown() override
    {
        m_posts.reset();
        QzBlowfishFilter::Terminate();
        QzStream::Terminate();
        EXPECT_EQ(QzMemory::GetDirectMemoryAllocated(), m_bytes_at_start) << "memory leaked";
    }

private:
    LtNat64 m_bytes_at_start = 0;
    std::optional<QzPostRecording> m_posts;
};

static std::string FromHex(std::string const &hex)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

static QzBlowfishFilter MakeFilter(std::string const &key)
{
    return QzBlowfishFilter(static_cast<int>(key.size()), Bytes(key));
}

// Blocks of this design hold little-endian words; OpenSSL and the published
// vectors read big-endian ones. Reversing each group of 4 bytes converts
// either way.
static std::string SwapWordBytes(std::string bytes)
{
    for (std::size_t i = 0; i + 4 <= bytes.size(); i += 4) {
        std::swap(bytes[i], bytes[i + 3]);
        std::swap(bytes[i + 1], bytes[i + 2]);
    }
    return bytes;
}

// OpenSSL's Blowfish ECB over blocks laid out as this design lays them.
static std::string OpenSslEcb(std::string const &key, std::string const &bytes, int direction)
{
    BF_KEY schedule;
    BF_set_key(&schedule, static_cast<int>(key.size()), Bytes(key));
    std::string const in = SwapWordBytes(bytes);
    std::string out(in.size(), '\0');
    for (std::size_t i = 0; i + 8 <= in.size(); i += 8)
        BF_ecb_encrypt(Bytes(in) + i, reinterpret_cast<unsigned char *>(&out[i]), &schedule,
                       direction);
    return SwapWordBytes(out);
}

// Our Blowfish over the same layout, a block at a time.
static std::string CipherBlocks(QzBlowfishFilter const &filter, std::string bytes, bool encrypt)
{
    for (std::size_t i = 0; i + 8 <= bytes.size(); i += 8) {
        unsigned words[2];
        std::memcpy(words, &bytes[i], 8);
        if (encrypt)
            filter.Encrypt2(&words[0], &words[1]);
        else
            filter.Decrypt2(&words[0], &words[1]);
        std::memcpy(&bytes[i], words, 8);
    }
    return bytes;
}

// One block given as published (hex, big-endian words) through our cipher.
static std::string EncryptPublished(std::string const &key_hex, char const *plain_hex)
{
    std::string const plain = SwapWordBytes(FromHex(plain_hex));
    return SwapWordBytes(CipherBlocks(MakeFilter(FromHex(key_hex)), plain, true));
}

// The frames of `plain` cut into writes of at most `frame` bytes, as the
// next sink, lending `piece` bytes at a time, received them.
static std::string WriteFrames(QzBlowfishFilter &filter, std::string const &plain,
                               int frame = 65536, int piece = 1 << 20, int *write_lends = nullptr)
{
    PieceSink sink(piece);
    filter.SetSink(&sink);
    EXPECT_TRUE(filter.WriteBegin(nullptr));
    EXPECT_TRUE(PutThroughSink(filter, plain, frame));
    EXPECT_TRUE(filter.WriteEnd());
    filter.SetSink(nullptr);
    if (write_lends != nullptr)
        *write_lends = sink.write_lends;
    return sink.data;
}

// `frames` read through the filter from a sink lending `piece` bytes at a
// time and answering `sink_status`: the plain bytes, then "<status N>" if
// the read ended with status N other than OK.
static std::string ReadFrames(QzBlowfishFilter &filter, std::string const &frames,
                              int piece = 1 << 20,
                              QzFileURL::Status sink_status = QzFileURL::eSTATUS_OK)
{
    PieceSink sink(piece);
    sink.data = frames;
    sink.read_status = sink_status;
    filter.SetSink(&sink);
    EXPECT_TRUE(filter.ReadBegin(nullptr));
    QzFileURL::Status status = QzFileURL::eSTATUS_OK;
    std::string plain = TakeFromSink(filter, &status, 1000);
    EXPECT_TRUE(filter.ReadEnd());
    filter.SetSink(nullptr);
    if (status != QzFileURL::eSTATUS_OK)
        plain += "<status " + std::to_string(status) + ">";
    return plain;
}

// Eric Young's tables, as big-endian words: the ECB table (key, plain,
// cipher), then plain FEDCBA9876543210 under the first n bytes of one key,
// n = 1 to 24 (the key is taken cyclically into P).
TEST_F(QzBlowfishFilterTest, PublishedVectors)
{
    struct Case {
        char const *key, *plain, *cipher;
    };
    Case const cases[] = {
        {"0000000000000000", "0000000000000000", "4EF997456198DD78"},
        {"FFFFFFFFFFFFFFFF", "FFFFFFFFFFFFFFFF", "51866FD5B85ECB8A"},
        {"0123456789ABCDEF", "1111111111111111", "61F9C3802281B096"},
        {"FEDCBA9876543210", "0123456789ABCDEF", "0ACEAB0FC6A0A28D"},
        {"0131D9619DC1376E", "5CD54CA83DEF57DA", "B1B8CC0B250F09A0"},
        {"FFFFFFFFFFFFFFFF", "0000000000000000", "F21E9A77B71C49BC"},
    };
    for (Case const &c : cases)
        EXPECT_EQ(EncryptPublished(c.key, c.plain), FromHex(c.cipher)) << c.key << " " << c.plain;

    char const *const by_key_length[] = {
        "F9AD597C49DB005E", "E91D21C1D961A6D6", "E9C2B70A1BC65CF3", "BE1E639408640F05",
        "B39E44481BDB1E6E", "9457AA83B1928C0D", "8BB77032F960629D", "E87A244E2CC85E82",
        "15750E7A4F4EC577", "122BA70B3AB64AE0", "3A833C9AFFC537F6", "9409DA87A90F6BF2",
        "884F80625060B8B4", "1F85031C19E11968", "79D9373A714CA34F", "93142887EE3BE15C",
        "03429E838CE2D14B", "A4299E27469FF67B", "AFD5AED1C1BC96A8", "10851C0E3858DA9F",
        "E6F51ED79B9DB21F", "64A6E14AFD36B46F", "80C7D7D45A5479AD", "05044B62FA52D080",
    };
    std::string const key_hex = "F0E1D2C3B4A5968778695A4B3C2D1E0F0011223344556677";
    for (std::size_t length = 1; length <= 24; ++length)
        EXPECT_EQ(EncryptPublished(key_hex.substr(0, 2 * length), "FEDCBA9876543210"),
                  FromHex(by_key_length[length - 1]))
            << length << " key bytes";
}

// Random keys of 1 to 56 bytes and random blocks, in this design's byte
// order, give what OpenSSL gives; decryption returns the plain bytes.
TEST_F(QzBlowfishFilterTest, MatchesOpenSslOnRandomKeysAndBlocks)
{
    std::mt19937 random(8675309);
    auto random_bytes = [&](std::size_t size) {
        std::string bytes(size, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random()); });
        return bytes;
    };
    for (int round = 0; round < 100; ++round) {
        std::string const key = random_bytes(1 + random() % 56);
        std::string const plain = random_bytes(8 * 5);
        QzBlowfishFilter const filter = MakeFilter(key);
        std::string const cipher = CipherBlocks(filter, plain, true);
        ASSERT_EQ(cipher, OpenSslEcb(key, plain, BF_ENCRYPT)) << "round " << round;
        EXPECT_EQ(CipherBlocks(filter, cipher, false), plain) << "round " << round;
    }
}

// Bytes past the 56th change nothing here, though OpenSSL (which takes up
// to 72) would use them; every way of giving the key cuts it alike, and a
// new key replaces the old schedule.
TEST_F(QzBlowfishFilterTest, KeyIsCutAtFiftySixBytes)
{
    std::string const key = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";  // 62
    std::string const plain = "8 bytes!and more";
    std::string const first_56 = OpenSslEcb(key.substr(0, 56), plain, BF_ENCRYPT);
    EXPECT_EQ(CipherBlocks(MakeFilter(key), plain, true), first_56);
    EXPECT_EQ(CipherBlocks(QzBlowfishFilter(key.c_str()), plain, true), first_56);
    QzBlowfishFilter rekeyed;
    rekeyed.InitKey(key.c_str());
    EXPECT_EQ(CipherBlocks(rekeyed, plain, true), first_56);
    rekeyed.InitKey(3, Bytes(key));
    EXPECT_EQ(CipherBlocks(rekeyed, plain, true), OpenSslEcb(key.substr(0, 3), plain, BF_ENCRYPT));
}

// A frame decrypted by OpenSSL: the header (plain length, zlib's Adler-32 of
// the plain bytes), then the plain bytes and zeros to a whole block.
static void ExpectFrame(std::string const &key, std::string const &frame, std::string const &plain)
{
    std::string const clear = OpenSslEcb(key, frame, BF_DECRYPT);
    unsigned header[2];
    std::memcpy(header, clear.data(), 8);
    EXPECT_EQ(header[0], plain.size());
    EXPECT_EQ(header[1], adler32(1, Bytes(plain), static_cast<uInt>(plain.size())));
    EXPECT_EQ(clear.substr(8), plain + std::string(clear.size() - 8 - plain.size(), '\0'));
}

// 9 plain bytes make 8 + 16 bytes, zero-filled although a longer frame of
// 'X' went through the same buffer just before; a full block makes a frame
// of 65,544 bytes, which a next sink lending 4,096 at a time takes in 17.
TEST_F(QzBlowfishFilterTest, FramesAsTheNextSinkGetsThem)
{
    std::string const key = "frame key";
    QzBlowfishFilter filter(key.c_str());
    std::string const two_frames = WriteFrames(filter, std::string(16, 'X') + "123456789", 16);
    ASSERT_EQ(two_frames.size(), 24u + 24u);
    ExpectFrame(key, two_frames.substr(24), "123456789");

    std::string const plain = MakePattern(65536);
    int lends = 0;
    std::string const full = WriteFrames(filter, plain, 65536, 4096, &lends);
    ASSERT_EQ(full.size(), 65544u);
    EXPECT_EQ(lends, 17);
    ExpectFrame(key, full, plain);
}

// Writes of several sizes, one frame each, read back whole whether the next
// sink lends 8 bytes at a time or everything at once.
TEST_F(QzBlowfishFilterTest, FramesReadBackOverAnyLends)
{
    QzBlowfishFilter filter("lends");
    std::string const plain = MakePattern(70000);
    for (int frame : {1, 7, 8, 4096, 65536}) {
        std::string const frames = WriteFrames(filter, plain, frame, 64);
        for (int piece : {8, 24, 1 << 20}) {
            SCOPED_TRACE(std::to_string(frame) + " per frame, lends of " + std::to_string(piece));
            EXPECT_EQ(ReadFrames(filter, frames, piece), plain);
        }
    }
}

// Any changed byte, in the header or the data, fails the read with status 2.
TEST_F(QzBlowfishFilterTest, ChangedByteAnywhereFailsTheRead)
{
    QzBlowfishFilter filter("seal");
    std::string const frame = WriteFrames(filter, "twenty plain bytes..");
    ASSERT_EQ(frame.size(), 32u);
    for (std::size_t offset = 0; offset < frame.size(); ++offset) {
        for (int flip : {0x01, 0x80}) {
            SCOPED_TRACE("offset " + std::to_string(offset) + " flip " + std::to_string(flip));
            std::string damaged = frame;
            damaged[offset] = static_cast<char>(damaged[offset] ^ flip);
            EXPECT_EQ(ReadFrames(filter, damaged), "<status 2>");
        }
    }
}

// WriteProcess: counts out of range, lends the frame cannot use, and a next
// sink that refuses all answer 0; a count of 0 sends nothing.
TEST_F(QzBlowfishFilterTest, WriteRefusals)
{
    struct Case {
        char const *name;
        int count, lend;
        bool refuse_lock;
        int result;
        std::size_t bytes_sent;
    };
    Case const cases[] = {
        {"count_0_sends_nothing", 0, 64, false, 1, 0},
        {"count_below_0", -1, 64, false, 0, 0},
        {"count_above_block", 65537, 1 << 20, false, 0, 0},
        {"lend_of_4", 16, 4, false, 0, 0},
        {"lend_of_12", 16, 12, false, 0, 0},
        {"lock_refused", 16, 64, true, 0, 0},
        {"lend_of_8_is_enough", 16, 8, false, 1, 24},
    };
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        QzBlowfishFilter filter("refusals");
        PieceSink sink(c.lend);
        sink.refuse_write_lock = c.refuse_lock;
        filter.SetSink(&sink);
        ASSERT_TRUE(filter.WriteBegin(nullptr));
        unsigned char *buffer = nullptr;
        int size = 0;
        ASSERT_TRUE(filter.WriteLock(&buffer, &size));
        EXPECT_EQ(size, 65536);
        std::memset(buffer, 'p', 16);
        EXPECT_EQ(filter.WriteProcess(c.count), c.result);
        EXPECT_EQ(sink.data.size(), c.bytes_sent);
        EXPECT_TRUE(filter.WriteEnd());
        EXPECT_FALSE(filter.WriteLock(&buffer, &size)) << "no buffer after WriteEnd";
    }
}

// ReadLock: end of data is status 0; every fault of the next sink or of the
// frame is status 2, after the frames before it.
TEST_F(QzBlowfishFilterTest, ReadFailures)
{
    QzBlowfishFilter filter("read faults");
    std::string const plain = MakePattern(100);
    std::string const frame = WriteFrames(filter, plain);
    ASSERT_EQ(frame.size(), 112u);
    QzBlowfishFilter other_key("other key");
    auto header_of = [&](char const *hex) {  // length, then an Adler-32 of 1
        return CipherBlocks(filter, FromHex(hex), true) + std::string(64, '\0');
    };
    std::string const failed = "<status 2>";
    struct Case {
        char const *name;
        std::string data;
        int lend;
        QzFileURL::Status sink_status;
        std::string expected;
    };
    Case const cases[] = {
        {"empty_is_the_end", "", 64, QzFileURL::eSTATUS_OK, ""},
        {"frame_cut_short", frame.substr(0, 104), 64, QzFileURL::eSTATUS_OK, failed},
        {"header_only", frame.substr(0, 8), 64, QzFileURL::eSTATUS_OK, failed},
        {"lend_of_12", frame, 12, QzFileURL::eSTATUS_OK, failed},
        {"tail_not_a_block", frame + "xyz", 112, QzFileURL::eSTATUS_OK, plain + failed},
        {"sink_waits", frame, 64, QzFileURL::eSTATUS_WAIT, failed},
        {"length_0", header_of("0000000001000000"), 64, QzFileURL::eSTATUS_OK, failed},
        {"length_65537", header_of("0100010001000000"), 64, QzFileURL::eSTATUS_OK, failed},
        {"wrong_key", WriteFrames(other_key, "abc"), 64, QzFileURL::eSTATUS_OK, failed},
    };
    for (Case const &c : cases)
        EXPECT_EQ(ReadFrames(filter, c.data, c.lend, c.sink_status), c.expected) << c.name;
}

// ReadProcess moves within the frame in hand and refuses to pass its end;
// at the end the next ReadLock decrypts the next frame, and after the last
// one lends nothing (null, 0) with status 0.
TEST_F(QzBlowfishFilterTest, ReadProcessStaysWithinTheFrame)
{
    QzBlowfishFilter filter("cursor");
    PieceSink sink;
    sink.data = WriteFrames(filter, "first frame!second", 12);
    filter.SetSink(&sink);
    ASSERT_TRUE(filter.ReadBegin(nullptr));
    auto lend = [&]() -> std::string {
        unsigned char const *buffer = nullptr;
        int size = -1;
        if (filter.ReadLock(&buffer, &size) != QzFileURL::eSTATUS_OK)
            return "<failed>";
        if (buffer == nullptr)
            return size == 0 ? "<end>" : "<null with a size>";
        return std::string(reinterpret_cast<char const *>(buffer), static_cast<std::size_t>(size));
    };
    EXPECT_EQ(lend(), "first frame!");
    EXPECT_TRUE(filter.ReadProcess(6));
    EXPECT_EQ(lend(), "frame!");
    EXPECT_FALSE(filter.ReadProcess(7));
    EXPECT_FALSE(filter.ReadProcess(-1));
    EXPECT_TRUE(filter.ReadProcess(6));
    EXPECT_EQ(lend(), "second");
    EXPECT_TRUE(filter.ReadProcess(6));
    EXPECT_TRUE(filter.ReadProcess(0)) << "nothing in hand, nothing taken";
    EXPECT_FALSE(filter.ReadProcess(1));
    EXPECT_EQ(lend(), "<end>");
    EXPECT_TRUE(filter.ReadEnd());
}

// A whole stream through the filter into a memory buffer: the header line
// in clear names the filter, nothing of the data shows, and a reader
// offered a filter with the same key gets every value back. With another
// key the read fails as "Read Failed" (error 9).
TEST_F(QzBlowfishFilterTest, StreamRoundTripAndWrongKey)
{
    std::string const secret = "nobody may read this";
    std::string const bulk = MakePattern(150000);  // three frames
    QzStreamBuffer buffer;
    {
        QzBlowfishFilter filter("stream key");
        QzWriteStream writer(&buffer);
        writer.AddActiveFilter(&filter);
        ASSERT_TRUE(writer.Begin(1, 0));
        writer.WriteInt32(-42);
        writer.WriteString(secret.c_str());
        writer.WriteNat8Array(Bytes(bulk), static_cast<LtInt32>(bulk.size()));
        ASSERT_TRUE(writer.End()) << QzPostRecording::Messages();
    }
    std::string const written(reinterpret_cast<char const *>(buffer.GetAlignedBuffer()),
                              static_cast<std::size_t>(buffer.GetAlignedUsed()));
    std::string const line = "#QzStream-V1.1 binary double release utf8 linull liblowfish\n";
    EXPECT_EQ(written.substr(0, line.size()), line);
    EXPECT_EQ(written.find(secret), std::string::npos);
    {
        QzBlowfishFilter filter("stream key");
        QzReadStream reader(&buffer);
        reader.AddAvailableFilter(&filter);
        ASSERT_TRUE(reader.Begin(1, 0)) << QzPostRecording::Messages();
        EXPECT_EQ(reader.ReadInt32(), -42);
        QzStringBuffer text;
        reader.ReadString(&text);
        EXPECT_STREQ(text.GetString(), secret.c_str());
        std::string got(bulk.size(), '\0');
        reader.ReadNat8Array(reinterpret_cast<LtNat8 *>(&got[0]), static_cast<LtInt32>(got.size()));
        EXPECT_EQ(got, bulk);
        EXPECT_TRUE(reader.End(1));
    }
    EXPECT_EQ(QzPostRecording::Messages(), "");

    QzBlowfishFilter wrong("stream kez");
    QzReadStream reader(&buffer);
    reader.AddAvailableFilter(&wrong);
    if (reader.Begin(1, 0))
        (void)reader.ReadInt32();  // the header line is in clear; the data fails
    EXPECT_EQ(reader.GetError(), 9);
    EXPECT_EQ(QzPostRecording::Messages(), "Read Failed|");
    EXPECT_FALSE(reader.End(1));
}

TEST(QzBlowfishFilterComponentTest, CountsWithoutDependencies)
{
    QzBlowfishFilter::Initialise();
    EXPECT_EQ(QzBlowfishFilter::IsInitialised(), 1);
    QzBlowfishFilter::Terminate();
    EXPECT_EQ(QzBlowfishFilter::IsInitialised(), 0);
}
