// QzStreamBuffer: where SetBuffer puts the data, the 8-byte alignment of what
// it lends, growth of its own buffer, the trimming and release at WriteEnd,
// and reading back.

#include "qzutil/stream/QzStreamBuffer.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/memory/QzMemory.h"

#include "stream/QzSinkDriver.h"

using QzStreamBufferTest = QzSinkTest;

static std::uintptr_t Phase(void const *address)
{
    return reinterpret_cast<std::uintptr_t>(address) % 8;
}

// A caller's buffer that starts `offset` bytes past an 8-byte boundary.
struct CallerBuffer {
    alignas(8) unsigned char storage[48];
    CallerBuffer() { std::memset(storage, 0xC3, sizeof storage); }
};

// Adopted in place when aligned (and not HintCopy) or with HintUseAlways,
// otherwise a managed 8-aligned copy. An adopted unaligned buffer starts its
// data at its first boundary: 3 bytes in, 5 are skipped.
TEST_F(QzStreamBufferTest, SetBufferAdoptsOrCopiesByHintAndAlignment)
{
    struct Case {
        char const *name;
        int offset;
        QzStreamBuffer::Hint hint;
        int managed;
        int skipped;  // bytes before the data in an adopted buffer
    };
    Case const cases[] = {
        {"aligned_use_if_aligned", 0, QzStreamBuffer::HintUseIfAligned, 0, 0},
        {"aligned_use_always", 0, QzStreamBuffer::HintUseAlways, 0, 0},
        {"aligned_copy", 0, QzStreamBuffer::HintCopy, 1, 0},
        {"unaligned_use_if_aligned", 3, QzStreamBuffer::HintUseIfAligned, 1, 0},
        {"unaligned_copy", 3, QzStreamBuffer::HintCopy, 1, 0},
        {"unaligned_use_always", 3, QzStreamBuffer::HintUseAlways, 0, 5},
    };
    int const size = 32;
    for (Case const &c : cases) {
        SCOPED_TRACE(c.name);
        CallerBuffer caller;
        unsigned char *data = caller.storage + c.offset;
        std::string const pattern = MakePattern(size);
        std::memcpy(data, pattern.data(), size);

        QzStreamBuffer buffer;
        ASSERT_EQ(buffer.SetBuffer(data, size, c.hint), 1);
        EXPECT_EQ(buffer.IsManagedBuffer(), c.managed);
        EXPECT_EQ(Phase(buffer.GetAlignedBuffer()), 0u);
        if (c.managed) {
            EXPECT_NE(buffer.GetBuffer(), data);
            EXPECT_EQ(buffer.GetAlignedSize(), size);
        } else {
            EXPECT_EQ(buffer.GetBuffer(), data);
            EXPECT_EQ(buffer.GetSize(), size);
            EXPECT_EQ(buffer.GetUsed(), c.skipped);
            EXPECT_EQ(buffer.GetAlignedSize(), size - c.skipped);
        }
        EXPECT_EQ(ReadAll(buffer, 7), std::string(pattern.begin() + c.skipped, pattern.end()));
    }
}

// Writing after HintUseIfAligned with an unaligned buffer goes to the copy;
// the caller's bytes stay as they were, and the copy is trimmed to what was
// written.
TEST_F(QzStreamBufferTest, UnalignedBufferIsWrittenThroughAPrivateCopy)
{
    CallerBuffer caller;
    std::string const before(caller.storage, caller.storage + sizeof caller.storage);
    QzStreamBuffer buffer;
    ASSERT_EQ(buffer.SetBuffer(caller.storage + 1, 40, QzStreamBuffer::HintUseIfAligned), 1);

    std::string const written = MakePattern(20);
    ASSERT_TRUE(WriteAll(buffer, written, 6));
    EXPECT_EQ(std::string(caller.storage, caller.storage + sizeof caller.storage), before);
    EXPECT_EQ(buffer.GetAlignedSize(), 20);
    EXPECT_EQ(ReadAll(buffer, 64), written);
}

// HintUseAlways on a buffer 3 bytes past a boundary, 30 bytes long
// (storage + 3 to storage + 33): writing starts at storage + 8 and the end is
// rounded down to storage + 32, so 24 bytes are lent; when they are used up
// the caller's buffer refuses to lend more, and nothing outside the lent area
// is touched.
TEST_F(QzStreamBufferTest, UnalignedBufferUsedAlwaysIsWrittenFromItsFirstBoundaryUntilFull)
{
    CallerBuffer caller;
    unsigned char *storage = caller.storage;
    QzStreamBuffer buffer;
    ASSERT_EQ(buffer.SetBuffer(storage + 3, 30, QzStreamBuffer::HintUseAlways), 1);
    ASSERT_EQ(buffer.WriteBegin(nullptr), 1);
    EXPECT_EQ(buffer.GetSize(), 29);

    unsigned char *area = nullptr;
    int size = 0;
    ASSERT_EQ(buffer.WriteLock(&area, &size), 1);
    EXPECT_EQ(area, storage + 8);
    EXPECT_EQ(size, 24);
    std::memset(area, 0x5A, 24);
    EXPECT_EQ(buffer.WriteProcess(25), 0);
    EXPECT_EQ(buffer.WriteProcess(24), 1);
    EXPECT_EQ(buffer.WriteLock(&area, &size), 0);
    EXPECT_EQ(buffer.WriteEnd(), 1);

    EXPECT_EQ(buffer.GetUsed(), 29);
    EXPECT_EQ(buffer.GetAlignedUsed(), 24);
    for (int i = 0; i < 48; ++i)
        EXPECT_EQ(storage[i], i >= 8 && i < 32 ? 0x5A : 0xC3) << "byte " << i;
}

// A managed buffer that received nothing is released and every accessor
// reads 0, whether WriteBegin made it or SetBuffer copied into it; one
// written byte keeps it, trimmed to that byte.
TEST_F(QzStreamBufferTest, WriteEndReleasesAManagedBufferThatReceivedNothing)
{
    for (int copied : {0, 1}) {
        for (int written : {0, 1}) {
            SCOPED_TRACE(::testing::Message() << "copied " << copied << ", written " << written);
            QzStreamBuffer buffer;
            unsigned char source[10] = {};
            if (copied) {
                ASSERT_EQ(buffer.SetBuffer(source, 10, QzStreamBuffer::HintCopy), 1);
            }
            ASSERT_EQ(buffer.WriteBegin(nullptr), 1);
            EXPECT_EQ(buffer.IsManagedBuffer(), 1);
            unsigned char *area = nullptr;
            int size = 0;
            ASSERT_EQ(buffer.WriteLock(&area, &size), 1);
            area[0] = 0x42;
            ASSERT_EQ(buffer.WriteProcess(written), 1);
            ASSERT_EQ(buffer.WriteEnd(), 1);
            if (written) {
                EXPECT_EQ(buffer.GetAlignedSize(), 1);
                EXPECT_EQ(ReadAll(buffer, 8), std::string{0x42});
                continue;
            }
            EXPECT_EQ(buffer.GetBuffer(), nullptr);
            EXPECT_EQ(buffer.GetAlignedBuffer(), nullptr);
            EXPECT_EQ(buffer.GetSize(), 0);
            EXPECT_EQ(buffer.GetUsed(), 0);
            EXPECT_EQ(buffer.GetAlignedSize(), 0);
            EXPECT_EQ(buffer.GetAlignedUsed(), 0);
            EXPECT_EQ(buffer.IsManagedBuffer(), 0);
            EXPECT_EQ(ReadAll(buffer, 8), std::string());
        }
    }
}

// The first buffer is 65,536 bytes and each reallocation doubles it, so the
// locks at each full buffer lend 65,536, 65,536, 131,072 and 262,144 bytes,
// each area continuing where the last ended and the data starting 8-aligned.
TEST_F(QzStreamBufferTest, GrowthDoublesAndKeepsTheDataAligned)
{
    int const lent_expected[] = {65536, 65536, 131072, 262144};
    std::string const pattern = MakePattern(262144 + 100);
    QzStreamBuffer buffer;
    ASSERT_EQ(buffer.WriteBegin(nullptr), 1);
    std::size_t written = 0;
    for (int expected : lent_expected) {
        unsigned char *area = nullptr;
        int size = 0;
        ASSERT_EQ(buffer.WriteLock(&area, &size), 1);
        EXPECT_EQ(size, expected);
        EXPECT_EQ(Phase(buffer.GetAlignedBuffer()), 0u);
        EXPECT_EQ(area, buffer.GetAlignedBuffer() + written);
        int const count = std::min(size, static_cast<int>(pattern.size() - written));
        std::memcpy(area, pattern.data() + written, static_cast<std::size_t>(count));
        ASSERT_EQ(buffer.WriteProcess(count), 1);
        written += static_cast<std::size_t>(count);
    }
    ASSERT_EQ(written, pattern.size());
    ASSERT_EQ(buffer.WriteEnd(), 1);
    EXPECT_EQ(buffer.GetAlignedSize(), static_cast<int>(pattern.size()));
    EXPECT_EQ(ReadAll(buffer, 5000), pattern);
}

// Reading lends the unread rest; a count beyond it is refused, 0 always
// succeeds, and an empty buffer is at its end at once.
TEST_F(QzStreamBufferTest, ReadProcessConsumesOnlyWhatWasLent)
{
    alignas(8) unsigned char data[16] = {};
    QzStreamBuffer buffer;
    unsigned char const *area = nullptr;
    int size = -1;
    ASSERT_EQ(buffer.ReadBegin(nullptr), 1);
    EXPECT_EQ(buffer.ReadLock(&area, &size), QzFileURL::eSTATUS_OK);
    EXPECT_EQ(area, nullptr);
    EXPECT_EQ(size, 0);
    EXPECT_EQ(buffer.ReadProcess(0), 1);
    EXPECT_EQ(buffer.ReadProcess(1), 0);

    ASSERT_EQ(buffer.SetBuffer(data, 16, QzStreamBuffer::HintUseIfAligned), 1);
    ASSERT_EQ(buffer.ReadBegin(nullptr), 1);
    EXPECT_EQ(buffer.ReadProcess(17), 0);
    EXPECT_EQ(buffer.ReadProcess(5), 1);
    EXPECT_EQ(buffer.ReadLock(&area, &size), QzFileURL::eSTATUS_OK);
    EXPECT_EQ(area, data + 5);
    EXPECT_EQ(size, 11);
    EXPECT_EQ(buffer.ReadProcess(12), 0);
    EXPECT_EQ(buffer.ReadProcess(11), 1);
    EXPECT_EQ(buffer.ReadLock(&area, &size), QzFileURL::eSTATUS_OK);
    EXPECT_EQ(area, nullptr);
    EXPECT_EQ(size, 0);
}

// A claimed buffer outlives the sink and is the caller's to free; the
// fixture's leak check and the sanitizers catch a double or missing release.
TEST_F(QzStreamBufferTest, ClaimedBufferBelongsToTheCaller)
{
    std::string const pattern = MakePattern(3);
    unsigned char *claimed = nullptr;
    unsigned char const *data = nullptr;
    {
        QzStreamBuffer buffer;
        ASSERT_TRUE(WriteAll(buffer, pattern, 3));
        data = buffer.GetAlignedBuffer();
        claimed = buffer.ClaimBuffer();
        EXPECT_EQ(claimed, buffer.GetBuffer());
        EXPECT_EQ(buffer.IsManagedBuffer(), 0);
    }
    EXPECT_EQ(std::string(data, data + 3), pattern);
    QzMemory::Free(claimed);
}
