// Round trips through whole streams: random sequences of typed values in
// every form, and the stores that keep their bytes in streams.

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBlock.h"
#include "qzutil/stream/QzStreamBlockBuffer.h"
#include "qzutil/stream/QzStreamBlockStore.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzStreamFileURLHandle.h"
#include "qzutil/stream/QzWriteStream.h"
#include "qzutil/sys/QzTempFile.h"
#include "qzutil/text/QzWideStringBuffer.h"
#include "qzutil/url/QzFileURL.h"

#include "stream/QzSinkDriver.h"
#include "support/QzTestSupport.h"
#include "sys/QzFileTestDir.h"

namespace {

// The settings of one stream form.
struct Form {
    int ascii;
    int debug;
    int is_double;
};

std::string Describe(Form const &form)
{
    return std::string(form.ascii ? "ascii" : "binary") + (form.debug ? " debug" : "") +
           (form.is_double ? "" : " single");
}

Form const kForms[] = {{0, 0, 1}, {0, 1, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 0}, {1, 0, 0}};

// One typed value of a random sequence; the kind picks the operation pair.
struct Value {
    int kind;
    LtNat64 bits;      // integers, and reals by their bit pattern
    std::string text;  // strings; `is_null` for a null one
    std::u16string wide;
    bool is_null = false;
    std::vector<LtInt32> array;
    bool sync_after = false;  // a sync point follows the value
};

constexpr int kKinds = 17;

// Reals are drawn finite and of moderate range, so that an ascii rendering
// with the stream's digits stands for them.
Value MakeValue(std::mt19937_64 &random)
{
    Value value;
    value.kind = static_cast<int>(random() % kKinds);
    value.sync_after = random() % 50 == 0;
    value.bits = random();
    int const shift = static_cast<int>(random() % 64);
    if (random() % 2)
        value.bits >>= shift;  // small magnitudes too, not only huge ones
    switch (value.kind) {
    case 9:
    case 10:
    case 11: {
        double const real = std::ldexp(static_cast<double>(value.bits % 2000001) - 1000000.0,
                                       static_cast<int>(random() % 80) - 40);
        std::memcpy(&value.bits, &real, sizeof real);
        break;
    }
    case 15: {
        std::size_t const length = random() % 40;
        value.is_null = random() % 7 == 0;
        for (std::size_t i = 0; i < length; ++i)  // any byte but NUL: quotes, escapes, high bytes
            value.text += static_cast<char>(1 + random() % 255);
        value.wide = u"\u00e9\u4e2d\U0001F600";
        value.wide += static_cast<char16_t>(u'a' + random() % 26);
        break;
    }
    case 16:
        for (std::size_t i = random() % 12; i > 0; --i)
            value.array.push_back(static_cast<LtInt32>(random()));
        break;
    default:
        break;
    }
    return value;
}

void WriteValue(QzWriteStream &out, Value const &v)
{
    double real;
    std::memcpy(&real, &v.bits, sizeof real);
    switch (v.kind) {
    case 0:
        out.WriteInt8(static_cast<LtInt8>(v.bits));
        break;
    case 1:
        out.WriteNat8(static_cast<LtNat8>(v.bits));
        break;
    case 2:
        out.WriteInt16(static_cast<LtInt16>(v.bits));
        break;
    case 3:
        out.WriteNat16(static_cast<LtNat16>(v.bits));
        break;
    case 4:
        out.WriteInt32(static_cast<LtInt32>(v.bits));
        break;
    case 5:
        out.WriteNat32(static_cast<LtNat32>(v.bits));
        break;
    case 6:
        out.WriteNat64(v.bits);
        break;
    case 7:
        out.WriteTime(static_cast<LtInt64>(v.bits));
        break;
    case 8:
        out.WriteBoolean(v.bits % 2 == 1);
        break;
    case 9:
        out.WriteSingle(static_cast<LtSingle>(real));
        break;
    case 10:
        out.WriteDouble(real);
        break;
    case 11:
        out.WriteFloat(real);
        break;
    case 12:
        out.WriteEnum(static_cast<LtNat32>(v.bits));
        break;
    case 13:
        out.WriteBitfield(static_cast<LtNat32>(v.bits));
        break;
    case 14:
        out.BeginBits();
        out.WriteBits(static_cast<unsigned>(v.bits), 13);
        out.WriteBits(static_cast<unsigned>(v.bits >> 13), 27);
        out.EndBits();
        break;
    case 15:
        out.WriteString(v.is_null ? nullptr : v.text.c_str());
        out.WriteWideString(v.wide.c_str());
        break;
    case 16:
        out.WriteArraySize32(static_cast<LtInt32>(v.array.size()));
        out.WriteInt32Array(v.array.data(), static_cast<LtInt32>(v.array.size()));
        break;
    }
}

// The single value that an ascii stream with 8 digits gives back: the
// written one to within the last of those digits.
::testing::AssertionResult NearSingle(float expected, float actual)
{
    if (expected == actual || std::fabs(expected - actual) <= std::fabs(expected) * 1e-7f)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << actual << " instead of " << expected;
}

void CheckValue(QzReadStream &in, Value const &v, Form const &form)
{
    double real;
    std::memcpy(&real, &v.bits, sizeof real);
    switch (v.kind) {
    case 0:
        EXPECT_EQ(in.ReadInt8(), static_cast<LtInt8>(v.bits));
        break;
    case 1:
        EXPECT_EQ(in.ReadNat8(), static_cast<LtNat8>(v.bits));
        break;
    case 2:
        EXPECT_EQ(in.ReadInt16(), static_cast<LtInt16>(v.bits));
        break;
    case 3:
        EXPECT_EQ(in.ReadNat16(), static_cast<LtNat16>(v.bits));
        break;
    case 4:
        EXPECT_EQ(in.ReadInt32(), static_cast<LtInt32>(v.bits));
        break;
    case 5:
        EXPECT_EQ(in.ReadNat32(), static_cast<LtNat32>(v.bits));
        break;
    case 6:
        EXPECT_EQ(in.ReadNat64(), v.bits);
        break;
    case 7:
        EXPECT_EQ(in.ReadTime(), static_cast<LtInt64>(v.bits));
        break;
    case 8:
        EXPECT_EQ(in.ReadBoolean(), v.bits % 2 == 1);
        break;
    case 9:
        if (form.ascii)
            EXPECT_TRUE(NearSingle(static_cast<float>(real), in.ReadSingle()));
        else
            EXPECT_EQ(in.ReadSingle(), static_cast<float>(real));
        break;
    case 10:
        EXPECT_EQ(in.ReadDouble(), real);
        break;
    case 11:
        if (form.is_double)
            EXPECT_EQ(in.ReadFloat(), real);
        else if (form.ascii)
            EXPECT_TRUE(NearSingle(static_cast<float>(real), static_cast<float>(in.ReadFloat())));
        else
            EXPECT_EQ(in.ReadFloat(), static_cast<double>(static_cast<float>(real)));
        break;
    case 12:
        EXPECT_EQ(in.ReadEnum(), static_cast<LtNat32>(v.bits));
        break;
    case 13:
        EXPECT_EQ(in.ReadBitfield(), static_cast<LtNat32>(v.bits));
        break;
    case 14:
        in.BeginBits();
        EXPECT_EQ(in.ReadBits(13), static_cast<unsigned>(v.bits) & 0x1FFF);
        EXPECT_EQ(in.ReadBits(27), static_cast<unsigned>(v.bits >> 13) & 0x7FFFFFF);
        EXPECT_EQ(in.EndBits(), 2);
        break;
    case 15: {
        QzStringBuffer text;
        in.ReadString(&text);
        if (v.is_null)
            EXPECT_TRUE(text.IsNull());
        else
            EXPECT_EQ(std::string(text.GetString() ? text.GetString() : "<null>"), v.text);
        QzWideStringBuffer wide;
        in.ReadWideString(&wide);
        EXPECT_EQ(ToU16(wide.GetString()), v.wide);
        break;
    }
    case 16: {
        LtInt32 const count = in.ReadArraySize32();
        ASSERT_EQ(count, static_cast<LtInt32>(v.array.size()));
        std::vector<LtInt32> array(static_cast<std::size_t>(count) + 1, 7);
        in.ReadInt32Array(array.data(), count);
        array.pop_back();
        EXPECT_EQ(array, v.array);
        break;
    }
    }
}

class QzStreamRoundTripTest : public ::testing::Test {
protected:
    void SetUp() override { QzStream::Initialise(); }
    void TearDown() override { QzStream::Terminate(); }
};

TEST_F(QzStreamRoundTripTest, RandomSequencesComeBackInEveryForm)
{
    for (unsigned seed = 1; seed <= 40; ++seed) {
        std::mt19937_64 random(seed);
        std::vector<Value> values;
        for (int i = static_cast<int>(random() % 300); i >= 0; --i)
            values.push_back(MakeValue(random));
        for (Form const &form : kForms) {
            SCOPED_TRACE("seed " + std::to_string(seed) + ", " + Describe(form));
            QzStreamBuffer buffer;
            QzWriteStream out(&buffer);
            out.SetAscii(form.ascii);
            out.SetDebug(form.debug);
            out.SetDouble(form.is_double);
            ASSERT_TRUE(out.Begin(1, 0));
            for (Value const &value : values) {
                WriteValue(out, value);
                if (value.sync_after)
                    out.WriteSync();
            }
            ASSERT_TRUE(out.End());

            // The reader learns the form from the header alone.
            QzReadStream in(&buffer);
            ASSERT_TRUE(in.Begin(1, 0));
            EXPECT_EQ(in.IsAscii(), form.ascii);
            for (Value const &value : values) {
                CheckValue(in, value, form);
                if (value.sync_after)
                    in.ReadSync();
            }
            EXPECT_TRUE(in.End(0));
            if (::testing::Test::HasFailure())
                return;
        }
    }
}

// Writes `store` into a stream of the given form and reads it back.
void StoreRoundTrip(QzStreamBlockStore const &store, Form const &form, QzStreamBlockStore *back)
{
    QzStreamBuffer buffer;
    QzWriteStream out(&buffer);
    out.SetAscii(form.ascii);
    out.SetDebug(form.debug);
    ASSERT_TRUE(out.Begin(1, 0));
    store.WriteContents(&out);
    ASSERT_TRUE(out.End());
    QzReadStream in(&buffer);
    ASSERT_TRUE(in.Begin(1, 0));
    back->ReadContents(&in);
    EXPECT_TRUE(in.End(1));
}

// A store holding `bytes`, made the way callers make one.
void FillStore(std::string const &bytes, QzStreamBlockStore *store)
{
    QzStreamBlockBuffer chain;
    ASSERT_TRUE(chain.WriteBegin(nullptr));
    ASSERT_TRUE(PutThroughSink(chain, bytes));
    ASSERT_TRUE(chain.WriteEnd());
    store->ClaimBuffer(&chain);
}

std::string StoreBytes(QzStreamBlockStore &store)
{
    QzStreamBlockBuffer reader;
    store.BeginReadBuffer(&reader);
    EXPECT_TRUE(reader.ReadBegin(nullptr));
    std::string bytes = TakeFromSink(reader);
    store.EndReadBuffer(&reader);
    return bytes;
}

TEST_F(QzStreamRoundTripTest, BlockStoresTravelInStreams)
{
    for (std::size_t size : {0UL, 100UL, 4064UL, 3UL * 4064 + 17}) {
        std::string bytes(size, '\0');
        for (std::size_t i = 0; i < size; ++i)
            bytes[i] = static_cast<char>(i * 13 + 5);
        QzStreamBlockStore store;
        FillStore(bytes, &store);
        for (Form const &form : {kForms[0], kForms[3]}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, " + Describe(form));
            QzStreamBlockStore back;
            StoreRoundTrip(store, form, &back);
            EXPECT_EQ(back.GetSize(), size);
            EXPECT_EQ(StoreBytes(back), bytes);
        }
    }
}

TEST_F(QzStreamRoundTripTest, ABlockStoreOfExactlyOneBlockSendsNoTailArray)
{
    QzStreamBlockStore store;
    FillStore(std::string(4064, 'z'), &store);
    QzStreamBuffer buffer;
    QzWriteStream out(&buffer);
    ASSERT_TRUE(out.Begin(0, 0));
    store.WriteContents(&out);
    ASSERT_TRUE(out.End());
    // Count 1 and its padding word, one block, then tail size 0 and nothing.
    EXPECT_EQ(buffer.GetAlignedUsed(), 4 + 4064 + 4);

    // A tail size that the writer never makes is refused on reading.
    LtInt32 const words[] = {0, 4064};
    QzStreamBuffer bad;
    ASSERT_TRUE(bad.SetBuffer(reinterpret_cast<unsigned char *>(const_cast<LtInt32 *>(words)),
                              sizeof words, QzStreamBuffer::HintCopy));
    QzReadStream in(&bad);
    ASSERT_TRUE(in.Begin(0, 0));
    QzStreamBlockStore back;
    back.ReadContents(&in);
    EXPECT_EQ(in.GetError(), QzStream::ErrorParse);
    EXPECT_TRUE(back.IsEmpty());
}

class QzStreamOnFilesTest : public QzFileTestDir {
protected:
    void SetUp() override
    {
        QzFileTestDir::SetUp();
        QzStream::Initialise();
    }
    void TearDown() override
    {
        QzStream::Terminate();
        QzFileTestDir::TearDown();
    }
};

TEST_F(QzStreamOnFilesTest, AFileTravelsInAStreamAndAMissingOneStopsIt)
{
    std::string bytes(200000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i % 251);
    auto *source = new QzTempFile();
    source->Ref();
    WriteBytes(ToUtf8(ToU16(source->GetFilename())), bytes);

    QzStreamBuffer buffer;
    QzWriteStream out(&buffer);
    ASSERT_TRUE(out.Begin(1, 0));
    source->WriteContents(&out);
    ASSERT_TRUE(out.End());
    auto *copy = new QzTempFile();
    copy->Ref();
    QzReadStream in(&buffer);
    ASSERT_TRUE(in.Begin(1, 0));
    copy->ReadContents(&in);
    EXPECT_TRUE(in.End(1));
    EXPECT_EQ(ReadBytes(ToUtf8(ToU16(copy->GetFilename()))), bytes);

    // The file went away under its object: the writer's run fails.
    ASSERT_EQ(unlink(ToUtf8(ToU16(source->GetFilename())).c_str()), 0);
    QzWriteStream lost(&buffer);
    ASSERT_TRUE(lost.Begin(1, 0));
    source->WriteContents(&lost);
    EXPECT_FALSE(lost.End());
    source->Unref();
    copy->Unref();
}

TEST_F(QzStreamOnFilesTest, AStreamRunsOverAURLAddressedFileBeyondFourGiB)
{
    QzFileURL::Initialise();
    WriteBytes(Path("big.bin"), "");  // the file must exist to be opened
    QzFileURLHandle *file = QzFileURL::OpenURL(WidePath("big.bin").c_str(), nullptr, 0, 0);
    ASSERT_NE(file, nullptr);
    LtNat64 const start = (LtNat64{5} << 30) + 8;  // past 4 GiB, on a sparse file
    std::vector<LtInt32> values(50000);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = static_cast<LtInt32>(i * 2654435761u);

    QzStreamFileURLHandle out_sink(file);
    out_sink.SetFilePointer(start);
    QzWriteStream out(&out_sink);
    ASSERT_TRUE(out.Begin(1, 0));
    out.WriteInt32Array(values.data(), static_cast<LtInt32>(values.size()));
    ASSERT_TRUE(out.End());
    EXPECT_GT(QzFileURL::GetFileSize(file), start + values.size() * 4);

    QzStreamFileURLHandle in_sink(file);
    in_sink.SetFilePointer(start);
    QzReadStream in(&in_sink);
    ASSERT_TRUE(in.Begin(1, 0));
    std::vector<LtInt32> back(values.size());
    in.ReadInt32Array(back.data(), static_cast<LtInt32>(back.size()));
    EXPECT_TRUE(in.End(1));
    EXPECT_EQ(back, values);
    QzFileURL::CloseURL(file);
    QzFileURL::Terminate();
}

}  // namespace
