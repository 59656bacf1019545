// Crash dumps: crashes in child processes leave a dump whose log ReadDump
// prints; the file follows its documented layout; callbacks veto, follow and
// add memory; dumps of a running process; and ReadDump on damaged files.

#include <fcntl.h>
#include <signal.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"

#include "frame/QzSysErrorFileFixture.h"

namespace {

// --- An independent reading of the dump layout ---

std::uint64_t LittleEndian(std::string const &bytes, std::size_t at, int width)
{
    std::uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i)
        value =
            (value << 8) | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
    return value;
}

void PutLittleEndian(std::string *bytes, std::size_t at, int width, std::uint64_t value)
{
    for (int i = 0; i < width; ++i)
        bytes->at(at + static_cast<std::size_t>(i)) = static_cast<char>(value >> (8 * i));
}

struct DumpStream {
    std::size_t entry_at;  // where its directory entry lies in the file
    std::uint32_t type;
    std::uint64_t offset;
    std::uint64_t size;
};

// The directory of a well-formed dump, read by hand: header of 32 bytes,
// then entries of 24 (type, 0, offset, size).
std::vector<DumpStream> Directory(std::string const &dump)
{
    std::vector<DumpStream> streams;
    std::uint64_t const count = LittleEndian(dump, 12, 4);
    std::uint64_t const at = LittleEndian(dump, 16, 8);
    for (std::uint64_t i = 0; i < count; ++i) {
        std::size_t const entry = static_cast<std::size_t>(at + 24 * i);
        streams.push_back({entry, static_cast<std::uint32_t>(LittleEndian(dump, entry, 4)),
                           LittleEndian(dump, entry + 8, 8), LittleEndian(dump, entry + 16, 8)});
    }
    return streams;
}

// The stream of a type; fails the test when it is missing.
DumpStream FindStream(std::string const &dump, std::uint32_t type)
{
    for (DumpStream const &stream : Directory(dump)) {
        if (stream.type == type)
            return stream;
    }
    ADD_FAILURE() << "no stream of type " << type;
    return {0, 0, 0, 0};
}

std::size_t EntryAt(std::string const &dump, std::uint32_t type)
{
    return FindStream(dump, type).entry_at;
}

std::string StreamBytes(std::string const &dump, std::uint32_t type)
{
    DumpStream const stream = FindStream(dump, type);
    return dump.substr(static_cast<std::size_t>(stream.offset),
                       static_cast<std::size_t>(stream.size));
}

// --- ReadDump's output ---

void AppendText(char const *text, void *out)
{
    static_cast<std::string *>(out)->append(text);
}

struct DumpReading {
    int result;
    std::string text;
};

DumpReading ReadDumpText(std::u16string const &path)
{
    DumpReading reading{0, ""};
    reading.result = QzSysError::ReadDump(path.c_str(), AppendText, &reading.text);
    return reading;
}

// The system line that the running kernel should give, from uname(2).
std::string ExpectedSystemLine()
{
    struct utsname names;
    if (uname(&names) != 0)
        return "uname failed";
    int major = 0, minor = 0, patch = 0;
    std::sscanf(names.release, "%d.%d.%d", &major, &minor, &patch);
    std::string const release = std::string(names.release).substr(0, 31);
    return "Linux " + std::to_string(major) + "." + std::to_string(minor) + " " + release +
           " (build " + std::to_string(patch) + ")\n";
}

std::string PartHeader(int index)
{
    return "\n\nLog Part " + std::to_string(index) + "\n";
}

bool StartsWith(std::string const &text, std::string const &prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

// --- Crashes, each run in a child ---

// An address in the never-mapped first page; not null, which a sanitizer
// would report before the fault happens.
constexpr std::uintptr_t kFaultAddress = 16;

[[noreturn]] void CrashBySegv()
{
    volatile std::uintptr_t address = kFaultAddress;
    *reinterpret_cast<int volatile *>(address) = 1;
    std::abort();  // not reached
}

[[noreturn]] void CrashByAbort()
{
    std::abort();
}

[[noreturn]] void CrashByUnhandledPost()
{
    QzError::Initialise();
    QzError::Post(QzSysError::eERROR, nullptr, "unhandled post %d", 7);
    std::abort();  // not reached: the post ends the process
}

void ThrowRuntimeError(void *)
{
    throw std::runtime_error("escaped");
}

[[noreturn]] void CrashByEscapedException()
{
    QzSysError::AbortOnException(ThrowRuntimeError, nullptr);
    std::abort();  // not reached
}

// Called through a volatile pointer, so the compiler cannot see the throw.
void (*volatile g_thrower)() = [] { throw std::runtime_error("uncaught"); };

[[noreturn]] void CrashByUncaughtException() noexcept
{
    // Leaving a noexcept function by an exception calls std::terminate.
    g_thrower();
    std::abort();  // not reached
}

volatile int g_never = -1;  // a depth that Recurse never reaches

// Deep enough to overflow any stack; the volatile array keeps each frame.
int Recurse(int depth)
{
    if (depth == g_never)
        return 0;
    volatile char frame[256];
    frame[0] = static_cast<char>(depth);
    return Recurse(depth + 1) + frame[0];
}

[[noreturn]] void CrashByStackOverflow()
{
    std::printf("%d\n", Recurse(0));
    std::abort();  // not reached
}

void LogTwoLines()
{
    QzSysError::LogUTF8String("first line\n");
    QzSysError::LogUTF8String("second line\n");
}

// Dump callbacks of the child processes.
// Runs in a signal handler: no heap and no stdio, so the ASCII path is
// narrowed by hand and the marker made with open(2).
int VetoAndMark(LtWChar const *path)
{
    char marker[4096];
    std::size_t length = 0;
    while (path[length] != 0 && length < sizeof(marker) - sizeof(".vetoed")) {
        marker[length] = static_cast<char>(path[length]);
        ++length;
    }
    std::memcpy(marker + length, ".vetoed", sizeof(".vetoed"));
    int const fd = open(marker, O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0)
        close(fd);
    return 0;
}

void ExitWithSeven(LtWChar const *)
{
    std::_Exit(7);
}

char g_extra_block[] = "memory from the callback, kept in the dump";

int GiveOneBlock(void **block, unsigned *size)
{
    static bool given = false;
    if (given)
        return 0;
    given = true;
    *block = g_extra_block;
    *size = sizeof(g_extra_block);
    return 1;
}

class QzSysErrorDumpTest : public QzScratchDirectoryTest {
protected:
    void SetUp() override
    {
        QzScratchDirectoryTest::SetUp();
        QzSysError::ClearLogBuffer();
    }
    void TearDown() override
    {
        QzSysError::SetDumpOnUnhandledException(nullptr, 1, 0, nullptr, nullptr, nullptr);
        QzSysError::ClearLogBuffer();
        QzScratchDirectoryTest::TearDown();
    }

    // A dump of this process with two logged lines, its bytes read back.
    std::string WriteSmallDump(char const *name, int include_log)
    {
        LogTwoLines();
        QzSysError::WriteDump(WidePathOf(name).c_str(), include_log, 0);
        return ReadFile(PathOf(name));
    }

    // Run in a death test's child: dump with the log to `name`, run `before`,
    // then `crash`.
    void CrashWithDump(std::string const &name, void (*crash)(), void (*before)() = LogTwoLines,
                       unsigned flags = 0, QzSysError::PreDumpCallback pre = nullptr,
                       QzSysError::PostDumpCallback post = nullptr,
                       QzSysError::DumpMemoryCallback memory = nullptr)
    {
        DisableCoreDumps();
        QzSysError::SetDumpOnUnhandledException(WidePathOf(name).c_str(), 1, flags, pre, post,
                                                memory);
        before();
        crash();
    }

    // Writes `bytes` to a file and reads it as a dump.
    DumpReading ReadBytesAsDump(std::string const &bytes)
    {
        {
            std::ofstream out(PathOf("patched.dmp"), std::ios::binary | std::ios::trunc);
            out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        }
        return ReadDumpText(WidePathOf("patched.dmp"));
    }
};

using QzSysErrorDumpDeathTest = QzSysErrorDumpTest;

}  // namespace

// Each way of crashing leaves a dump, exits with 4, and records its signal;
// ReadDump gives the system line and the log in its three parts.
TEST_F(QzSysErrorDumpDeathTest, EveryCrashLeavesADumpWithTheLog)
{
    struct Row {
        char const *name;
        void (*crash)();
        int signal_number;
        char const *also_logged;  // a line the crash path logs itself, or ""
    };
    Row const rows[] = {
        {"segv", CrashBySegv, SIGSEGV, ""},
        {"abort", CrashByAbort, SIGABRT, ""},
        {"unhandled_post", CrashByUnhandledPost, SIGABRT, "No handler for error"},
        {"escaped_exception", CrashByEscapedException, SIGABRT, ""},
        {"uncaught_exception", CrashByUncaughtException, SIGABRT, ""},
        {"stack_overflow", CrashByStackOverflow, SIGSEGV, ""},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::string const file = std::string(row.name) + ".dmp";
        EXPECT_EXIT(
            {
                DisableCoreDumps();
                QzSysError::ConfigureForUnitTests(WidePathOf(file).c_str());
                LogTwoLines();
                row.crash();
            },
            testing::ExitedWithCode(4), "");
        std::string const dump = ReadFile(PathOf(file));
        ASSERT_GE(dump.size(), 32u);
        EXPECT_EQ(LittleEndian(dump, 28, 4), static_cast<std::uint64_t>(row.signal_number));

        DumpReading const reading = ReadDumpText(WidePathOf(file));
        EXPECT_EQ(reading.result, 1);
        std::string const head = ExpectedSystemLine() + PartHeader(0) + "first line\nsecond line\n";
        EXPECT_TRUE(StartsWith(reading.text, head)) << reading.text;
        EXPECT_NE(reading.text.find(row.also_logged), std::string::npos);
        std::string const tail = PartHeader(1) + "Empty log\n" + PartHeader(2) + "Empty log\n";
        ASSERT_GE(reading.text.size(), tail.size());
        EXPECT_EQ(reading.text.substr(reading.text.size() - tail.size()), tail);
    }
}

// After more than 1 MiB of log the three parts are the head, the old text of
// the second region behind the write position, and its newest text: with
// the gap marker between head and the rest, exactly the log's replay.
TEST_F(QzSysErrorDumpDeathTest, WrappedLogGivesHeadOldTailAndNewTail)
{
    void (*log_a_lot)() = [] {
        QzSysError::LogUTF8String("head of the run\n");
        std::string const filler(990, '~');
        for (int i = 0; i < 1200; ++i)
            QzSysError::LogUTF8String((std::to_string(i) + filler + "\n").c_str());
        QzSysError::LogUTF8String("tail of the run\n");
    };
    EXPECT_EXIT(CrashWithDump("wrapped.dmp", CrashBySegv, log_a_lot), testing::ExitedWithCode(4),
                "");
    // The same lines here give the same log, whose replay is the reference.
    QzSysError::ClearLogBuffer();
    log_a_lot();
    std::string const replay = ReplayLog();
    std::size_t const gap = replay.find(".\n.\n.\n.\n.\n");
    ASSERT_NE(gap, std::string::npos);

    DumpReading const reading = ReadDumpText(WidePathOf("wrapped.dmp"));
    ASSERT_EQ(reading.result, 1);
    std::size_t const part0 = reading.text.find(PartHeader(0));
    std::size_t const part1 = reading.text.find(PartHeader(1));
    std::size_t const part2 = reading.text.find(PartHeader(2));
    ASSERT_TRUE(part0 < part1 && part1 < part2 && part2 != std::string::npos);
    std::string const head =
        reading.text.substr(part0 + PartHeader(0).size(), part1 - part0 - PartHeader(0).size());
    std::string const old_tail =
        reading.text.substr(part1 + PartHeader(1).size(), part2 - part1 - PartHeader(1).size());
    std::string const new_tail = reading.text.substr(part2 + PartHeader(2).size());
    EXPECT_EQ(head, replay.substr(0, gap));
    EXPECT_FALSE(old_tail.empty());
    EXPECT_EQ(old_tail + new_tail, replay.substr(gap + 10));
    EXPECT_EQ(new_tail.substr(new_tail.size() - 16), "tail of the run\n");
}

// The file of a SIGSEGV dump, field by field as documented.
TEST_F(QzSysErrorDumpDeathTest, SegvDumpFollowsTheFileLayout)
{
    unsigned const flags = 0x15;  // bit 1 clear; the rest has no meaning but is kept
    EXPECT_EXIT(CrashWithDump("layout.dmp", CrashBySegv, LogTwoLines, flags),
                testing::ExitedWithCode(4), "");
    std::string const dump = ReadFile(PathOf("layout.dmp"));
    ASSERT_GE(dump.size(), 32u + 8 * 24);
    EXPECT_EQ(dump.substr(0, 8), std::string("QZDUMP\0\1", 8));
    EXPECT_EQ(LittleEndian(dump, 8, 4), 1u) << "format version";
    EXPECT_EQ(LittleEndian(dump, 12, 4), 8u) << "stream count";
    EXPECT_EQ(LittleEndian(dump, 16, 8), 32u) << "directory offset";
    EXPECT_EQ(LittleEndian(dump, 24, 4), flags);
    EXPECT_EQ(LittleEndian(dump, 28, 4), static_cast<std::uint64_t>(SIGSEGV));

    // Streams in the documented order, back to back, filling the file.
    std::uint32_t const kOrder[] = {7, 6, 0x10000, 0x10001, 0x10002, 0x10010, 0x10011, 5};
    std::vector<DumpStream> const streams = Directory(dump);
    ASSERT_EQ(streams.size(), 8u);
    std::uint64_t expected_offset = 32 + 8 * 24;
    for (std::size_t i = 0; i < streams.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(streams[i].type, kOrder[i]);
        EXPECT_EQ(LittleEndian(dump, 32 + 24 * i + 4, 4), 0u) << "reserved field";
        EXPECT_EQ(streams[i].offset, expected_offset);
        expected_offset += streams[i].size;
    }
    EXPECT_EQ(expected_offset, dump.size());

    std::string const system = StreamBytes(dump, 7);
    ASSERT_EQ(system.size(), 56u);
#if defined(__x86_64__)
    EXPECT_EQ(LittleEndian(system, 0, 2), 9u);
    std::size_t const register_bytes = 23 * 8;  // NGREG general registers
#elif defined(__aarch64__)
    EXPECT_EQ(LittleEndian(system, 0, 2), 12u);
    std::size_t const register_bytes = 34 * 8;  // x0-x30, sp, pc, pstate
#endif
    EXPECT_EQ(LittleEndian(system, 2, 2),
              static_cast<std::uint64_t>(sysconf(_SC_NPROCESSORS_ONLN)));
    EXPECT_EQ(LittleEndian(system, 4, 4), 100u) << "Linux";
    EXPECT_EQ(LittleEndian(system, 20, 4), static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)));
    struct utsname names;
    ASSERT_EQ(uname(&names), 0);
    EXPECT_EQ(std::string(system.c_str() + 24), std::string(names.release).substr(0, 31));
    EXPECT_EQ(system[55], '\0');

    std::string const context = StreamBytes(dump, 6);
    ASSERT_EQ(context.size(), 24 + register_bytes);
    EXPECT_EQ(LittleEndian(context, 0, 4), static_cast<std::uint64_t>(SIGSEGV));
    EXPECT_EQ(LittleEndian(context, 4, 4), static_cast<std::uint64_t>(SEGV_MAPERR));
    EXPECT_EQ(LittleEndian(context, 8, 8), kFaultAddress);
    EXPECT_NE(LittleEndian(context, 16, 4), 0u) << "a thread id";

    EXPECT_EQ(StreamBytes(dump, 0x10000), std::string("first line\nsecond line\n", 24));
    EXPECT_EQ(StreamBytes(dump, 0x10001), std::string(1, '\0'));
    EXPECT_EQ(StreamBytes(dump, 0x10002), std::string(1, '\0'));

    std::string const maps = StreamBytes(dump, 0x10010);
    EXPECT_NE(maps.find("qzutil_frame_log_tests"), std::string::npos) << "the executable's mapping";
    EXPECT_NE(maps.find("[stack]"), std::string::npos);
    std::string const returns = StreamBytes(dump, 0x10011);
    EXPECT_GT(returns.size(), 0u);
    EXPECT_EQ(returns.size() % 8, 0u);

    // One record: the stack from its pointer, up to 64 KiB.
    std::string const memory = StreamBytes(dump, 5);
    ASSERT_GE(memory.size(), 16u);
    std::uint64_t const stack_bytes = LittleEndian(memory, 8, 8);
    EXPECT_NE(LittleEndian(memory, 0, 8), 0u) << "the stack pointer";
    EXPECT_GT(stack_bytes, 0u);
    EXPECT_LE(stack_bytes, 65536u);
    EXPECT_EQ(memory.size(), 16 + stack_bytes);
}

// A pre-dump callback that answers 0 gets the path and leaves no dump: the
// crash meets the default action.
TEST_F(QzSysErrorDumpDeathTest, VetoLeavesNoDumpAndTheSignalKills)
{
    EXPECT_EXIT(CrashWithDump("vetoed.dmp", CrashBySegv, LogTwoLines, 0, VetoAndMark),
                testing::KilledBySignal(SIGSEGV), "");
    EXPECT_TRUE(Exists(PathOf("vetoed.dmp.vetoed"))) << "the callback ran with the dump path";
    EXPECT_FALSE(Exists(PathOf("vetoed.dmp")));
}

// The post-dump callback runs once the dump is whole; it may end the process
// itself.
TEST_F(QzSysErrorDumpDeathTest, PostDumpCallbackFollowsAWholeDump)
{
    EXPECT_EXIT(CrashWithDump("post.dmp", CrashByAbort, LogTwoLines, 0, nullptr, ExitWithSeven),
                testing::ExitedWithCode(7), "");
    EXPECT_EQ(ReadDumpText(WidePathOf("post.dmp")).result, 1);
}

// The memory callback's block lands in the memory stream after the stack,
// unless flag bit 1 keeps it out.
TEST_F(QzSysErrorDumpDeathTest, MemoryCallbackBlocksFollowTheFlag)
{
    struct Row {
        char const *name;
        unsigned flags;
        bool has_block;
    };
    Row const rows[] = {{"included", 0, true},
                        {"flag_bit_1", QzSysError::kDumpFlagNoCallbackMemory, false}};
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::string const file = std::string(row.name) + ".dmp";
        EXPECT_EXIT(CrashWithDump(file, CrashBySegv, LogTwoLines, row.flags, nullptr, nullptr,
                                  GiveOneBlock),
                    testing::ExitedWithCode(4), "");
        std::string const memory = StreamBytes(ReadFile(PathOf(file)), 5);
        std::string const block(g_extra_block, sizeof(g_extra_block));
        ASSERT_GE(memory.size(), 16u);
        std::size_t const second_record = 16 + static_cast<std::size_t>(LittleEndian(memory, 8, 8));
        if (!row.has_block) {
            EXPECT_EQ(memory.size(), second_record);
            continue;
        }
        ASSERT_EQ(memory.size(), second_record + 16 + block.size());
        EXPECT_EQ(LittleEndian(memory, second_record + 8, 8), block.size());
        EXPECT_EQ(memory.substr(second_record + 16), block);
    }
}

// An empty path puts back what was there before (here the default action;
// a sanitizer has its own), so a crash is no longer dumped.
TEST_F(QzSysErrorDumpDeathTest, EmptyPathEndsDumping)
{
    EXPECT_EXIT(
        {
            DisableCoreDumps();
            signal(SIGSEGV, SIG_DFL);
            QzSysError::ConfigureForUnitTests(WidePathOf("ended.dmp").c_str());
            QzSysError::SetDumpOnUnhandledException(u"", 1, 0, nullptr, nullptr, nullptr);
            CrashBySegv();
        },
        testing::KilledBySignal(SIGSEGV), "");
    EXPECT_FALSE(Exists(PathOf("ended.dmp")));
}

// A dump of the running process: signal 0, the flags as given, the log, and
// the process goes on.
TEST_F(QzSysErrorDumpTest, WriteDumpOfARunningProcess)
{
    LogTwoLines();
    QzSysError::WriteDump(WidePathOf("running.dmp").c_str(), 1, 0x3);
    QzSysError::LogUTF8String("still running\n");
    std::string const dump = ReadFile(PathOf("running.dmp"));
    ASSERT_GE(dump.size(), 32u);
    EXPECT_EQ(LittleEndian(dump, 28, 4), 0u) << "no signal";
    EXPECT_EQ(LittleEndian(dump, 24, 4), 0x3u);
    EXPECT_EQ(LittleEndian(dump, 12, 4), 8u);
    EXPECT_EQ(QzSysError::IsDumpOnUnhandledException(), 0);

    DumpReading const reading = ReadDumpText(WidePathOf("running.dmp"));
    EXPECT_EQ(reading.result, 1);
    EXPECT_EQ(reading.text, ExpectedSystemLine() + PartHeader(0) + "first line\nsecond line\n" +
                                PartHeader(1) + "Empty log\n" + PartHeader(2) + "Empty log\n");
}

// Before anything is logged the first part says so in its own words.
TEST_F(QzSysErrorDumpTest, EmptyLogIsNamedInTheFirstPart)
{
    QzSysError::WriteDump(WidePathOf("empty.dmp").c_str(), 1, 0);
    DumpReading const reading = ReadDumpText(WidePathOf("empty.dmp"));
    EXPECT_EQ(reading.result, 1);
    EXPECT_TRUE(StartsWith(reading.text, ExpectedSystemLine() + PartHeader(0) + "Empty Log\n"))
        << reading.text;
}

// Without the log there is nothing to read: the system line, then a failure
// with a warning that says why.
TEST_F(QzSysErrorDumpTest, DumpWithoutLogFailsToRead)
{
    std::string const dump = WriteSmallDump("nolog.dmp", 0);
    EXPECT_EQ(LittleEndian(dump, 12, 4), 5u) << "no log streams";
    QzPostRecorder::Posts().clear();
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eWARNING,
                           static_cast<QzComponent *>(nullptr), -1);
    DumpReading const reading = ReadDumpText(WidePathOf("nolog.dmp"));
    QzSysError::RemoveHandler(QzSysError::eWARNING, static_cast<QzComponent *>(nullptr), -1);
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.text, ExpectedSystemLine());
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_NE(QzPostRecorder::Posts()[0].message.find(u"no log"), std::u16string::npos);
}

// Damaged files are refused before anything is printed.
TEST_F(QzSysErrorDumpTest, ReadDumpRefusesDamagedFiles)
{
    std::string const good = WriteSmallDump("good.dmp", 1);
    ASSERT_EQ(ReadBytesAsDump(good).result, 1);
    std::size_t const system_entry = EntryAt(good, 7);
    std::size_t const log_entry = EntryAt(good, 0x10000);
    struct Row {
        char const *name;
        std::size_t at;  // where the patch goes
        int width;
        std::uint64_t value;
    };
    Row const rows[] = {
        {"bad_magic", 0, 1, 'X'},
        {"magic_last_byte", 7, 1, 2},
        {"version_2", 8, 4, 2},
        {"huge_stream_count", 12, 4, 0xFFFFFFFFu},
        {"count_past_directory", 12, 4, 9},
        {"directory_past_end", 16, 8, good.size()},
        {"directory_offset_wraps", 16, 8, ~std::uint64_t{0} - 8},
        {"stream_past_end", log_entry + 8, 8, good.size()},
        {"stream_size_past_end", log_entry + 16, 8, good.size()},
        {"offset_plus_size_wraps", log_entry + 16, 8, ~std::uint64_t{0} - 100},
        {"system_size_55", system_entry + 16, 8, 55},
        {"system_size_57", system_entry + 16, 8, 57},
        {"system_missing", system_entry, 4, 0x99},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::string patched = good;
        PutLittleEndian(&patched, row.at, row.width, row.value);
        DumpReading const reading = ReadBytesAsDump(patched);
        EXPECT_EQ(reading.result, 0);
        EXPECT_EQ(reading.text, "");
    }
    struct FileRow {
        char const *name;
        std::string bytes;
    };
    FileRow const files[] = {
        {"empty", ""},
        {"text", "this is not a dump, but it is long enough to hold a header\n"},
        {"header_only", good.substr(0, 32)},
        {"zeros", std::string(good.size(), '\0')},
    };
    for (FileRow const &file : files) {
        SCOPED_TRACE(file.name);
        EXPECT_EQ(ReadBytesAsDump(file.bytes).result, 0);
    }
    EXPECT_EQ(ReadDumpText(WidePathOf("missing.dmp")).result, 0);
    EXPECT_EQ(ReadDumpText(WidePathOf("")).result, 0) << "a directory";
}

// Every truncation of a real dump is refused cleanly: the directory or some
// stream always reaches past the cut.
TEST_F(QzSysErrorDumpTest, ReadDumpRefusesEveryTruncation)
{
    std::string const good = WriteSmallDump("cut.dmp", 1);
    ASSERT_EQ(ReadDumpText(WidePathOf("cut.dmp")).result, 1);
    std::filesystem::path const path = PathOf("cut.dmp");
    std::size_t failures = 0;
    for (std::size_t length = good.size(); length-- > 0;) {
        std::filesystem::resize_file(path, length);
        std::string ignored;
        if (QzSysError::ReadDump(WidePathOf("cut.dmp").c_str(), AppendText, &ignored) != 0) {
            ADD_FAILURE() << "a dump cut at " << length << " of " << good.size() << " was read";
            if (++failures > 5)
                break;
        }
    }
}

// Log parts as a damaged or foreign file may hold them.
TEST_F(QzSysErrorDumpTest, ReadDumpNamesOddLogParts)
{
    std::string const good = WriteSmallDump("parts.dmp", 1);
    std::size_t const entry0 = EntryAt(good, 0x10000);
    std::size_t const entry2 = EntryAt(good, 0x10002);
    std::uint64_t const size0 = LittleEndian(good, entry0 + 16, 8);
    std::string const system_line = ExpectedSystemLine();

    std::string unterminated = good;
    unterminated[static_cast<std::size_t>(LittleEndian(good, entry0 + 8, 8) + size0 - 1)] = '!';
    DumpReading reading = ReadBytesAsDump(unterminated);
    EXPECT_EQ(reading.result, 1);
    EXPECT_TRUE(StartsWith(reading.text, system_line + PartHeader(0) + "Log length " +
                                             std::to_string(size0) + " is not NULL terminated\n"))
        << reading.text;

    std::string empty_first = good;
    PutLittleEndian(&empty_first, entry0 + 16, 8, 0);
    reading = ReadBytesAsDump(empty_first);
    EXPECT_EQ(reading.result, 1);
    EXPECT_TRUE(StartsWith(reading.text, system_line + PartHeader(0) + "Empty log\n"))
        << reading.text;

    // Without its last part only the first two are printed.
    std::string two_parts = good;
    PutLittleEndian(&two_parts, entry2, 4, 0x20000);
    reading = ReadBytesAsDump(two_parts);
    EXPECT_EQ(reading.result, 1);
    EXPECT_EQ(reading.text, system_line + PartHeader(0) + "first line\nsecond line\n" +
                                PartHeader(1) + "Empty log\n");
}

// The system line for each platform and version that has a name of its own.
TEST_F(QzSysErrorDumpTest, SystemLinesOfEachPlatform)
{
    std::string good = WriteSmallDump("system.dmp", 1);
    std::size_t const record =
        static_cast<std::size_t>(LittleEndian(good, EntryAt(good, 7) + 8, 8));
    // The release text and the build as a Windows dump would hold them.
    std::string const release = "Service Pack 3";
    for (std::size_t i = 0; i < 32; ++i)
        good[record + 24 + i] = i < release.size() ? release[i] : '\0';
    PutLittleEndian(&good, record + 16, 4, 2600);
    struct Row {
        std::uint32_t platform;
        std::uint32_t major;
        std::uint32_t minor;
        char const *name;
    };
    Row const rows[] = {
        {1, 4, 0, "Windows 95"},
        {1, 4, 10, "Windows 98"},
        {1, 4, 90, "Windows ME"},
        {1, 4, 3, "Windows 9X 4.3"},
        {1, 5, 1, "Windows 9X 5.1"},
        {2, 4, 0, "Windows NT 4.0"},
        {2, 5, 0, "Windows 2000"},
        {2, 5, 1, "Windows XP"},
        {2, 5, 2, "Windows Server 2003"},
        {2, 5, 3, "Windows NT version 5.3"},
        {2, 10, 0, "Windows NT version 10.0"},
        {0, 3, 1, "Unknown OS platform 0, version 3.1"},
        {101, 6, 2, "Unknown OS platform 101, version 6.2"},
        {100, 6, 1, "Linux 6.1"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        PutLittleEndian(&good, record + 4, 4, row.platform);
        PutLittleEndian(&good, record + 8, 4, row.major);
        PutLittleEndian(&good, record + 12, 4, row.minor);
        DumpReading const reading = ReadBytesAsDump(good);
        EXPECT_EQ(reading.result, 1);
        std::string const line = std::string(row.name) + " Service Pack 3 (build 2600)\n";
        EXPECT_TRUE(StartsWith(reading.text, line)) << reading.text;
    }
    // A release text that fills all 32 bytes is still printed as a text.
    for (std::size_t i = 0; i < 32; ++i)
        good[record + 24 + i] = 'r';
    DumpReading const reading = ReadBytesAsDump(good);
    EXPECT_TRUE(StartsWith(reading.text, "Linux 6.1 " + std::string(32, 'r') + " (build 2600)\n"))
        << reading.text;
}

// The dump path and its switch; a path too long for the kernel ends dumping.
TEST_F(QzSysErrorDumpTest, DumpPathIsKeptUntilCleared)
{
    EXPECT_EQ(QzSysError::IsDumpOnUnhandledException(), 0);
    EXPECT_EQ(ToU16(QzSysError::DumpPath()), u"");
    QzSysError::ConfigureForUnitTests(WidePathOf("kept.dmp").c_str());
    EXPECT_EQ(QzSysError::IsDumpOnUnhandledException(), 1);
    EXPECT_EQ(ToU16(QzSysError::DumpPath()), WidePathOf("kept.dmp"));

    std::u16string const too_long = u"/" + std::u16string(4095, u'x');
    QzSysError::SetDumpOnUnhandledException(too_long.c_str(), 1, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(QzSysError::IsDumpOnUnhandledException(), 0);
    EXPECT_NE(ReplayLog().find("path too long"), std::string::npos);
}

// An empty path and the protector both put back the signal actions and the
// terminate handler that were in place.
TEST_F(QzSysErrorDumpTest, HandlersComeBackAfterEmptyPathAndProtector)
{
    auto segv_handler = [] {
        struct sigaction action;
        sigaction(SIGSEGV, nullptr, &action);
        return action.sa_handler;  // the union's other member shows the same address
    };
    auto const original_action = segv_handler();
    std::terminate_handler const original_terminate = std::get_terminate();

    QzSysError::ConfigureForUnitTests(WidePathOf("a.dmp").c_str());
    EXPECT_NE(segv_handler(), original_action);
    EXPECT_NE(std::get_terminate(), original_terminate);
    QzSysError::SetDumpOnUnhandledException(nullptr, 1, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(segv_handler(), original_action);
    EXPECT_EQ(std::get_terminate(), original_terminate);

    {
        QzSysExceptionFilterProtector protector;
        QzSysError::ConfigureForUnitTests(WidePathOf("b.dmp").c_str());
        EXPECT_NE(segv_handler(), original_action);
    }
    EXPECT_EQ(segv_handler(), original_action);
    EXPECT_EQ(std::get_terminate(), original_terminate);
    // The path is the frame's, not the protector's: a new installation works.
    QzSysError::ConfigureForUnitTests(WidePathOf("c.dmp").c_str());
    EXPECT_NE(segv_handler(), original_action);
}
