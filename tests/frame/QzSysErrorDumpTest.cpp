// Crash dumps: crashes in child processes leave a dump whose log ReadDump
// prints; the file follows its documented layout; callbacks veto, follow and
// add memory; dumps of a running process; and ReadDump on damaged files.

#include <signal.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"

#include "frame/QzSysErrorFileFixture.h"

namespace {

struct DumpStream {
    std::size_t entry_at;  // where its directory entry lies in the file
    std::uint32_t type;
    std::uint64_t offset;
    std::uint64_t size;
};

struct DumpReading {
    int result;
    std::string text;
};

}  // namespace

// --- An independent reading of the dump layout (all numbers little-endian) ---

static std::uint64_t LittleEndian(std::string const &bytes, std::size_t at, int width)
{
    std::uint64_t value = 0;
    for (int i = width - 1; i >= 0; --i)
        value =
            (value << 8) | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
    return value;
}

static void PutLittleEndian(std::string *bytes, std::size_t at, int width, std::uint64_t value)
{
    for (int i = 0; i < width; ++i)
        bytes->at(at + static_cast<std::size_t>(i)) = static_cast<char>(value >> (8 * i));
}

// The directory: header of 32 bytes, then entries of 24 (type, 0, offset, size).
static std::vector<DumpStream> Directory(std::string const &dump)
{
    std::vector<DumpStream> streams;
    std::uint64_t const at = LittleEndian(dump, 16, 8);
    for (std::uint64_t i = 0; i < LittleEndian(dump, 12, 4); ++i) {
        std::size_t const entry = static_cast<std::size_t>(at + 24 * i);
        streams.push_back({entry, static_cast<std::uint32_t>(LittleEndian(dump, entry, 4)),
                           LittleEndian(dump, entry + 8, 8), LittleEndian(dump, entry + 16, 8)});
    }
    return streams;
}

// The stream of a type; fails the test when it is missing.
static DumpStream FindStream(std::string const &dump, std::uint32_t type)
{
    for (DumpStream const &stream : Directory(dump)) {
        if (stream.type == type)
            return stream;
    }
    ADD_FAILURE() << "no stream of type " << type;
    return {0, 0, 0, 0};
}

static std::string StreamBytes(std::string const &dump, std::uint32_t type)
{
    DumpStream const stream = FindStream(dump, type);
    return dump.substr(static_cast<std::size_t>(stream.offset),
                       static_cast<std::size_t>(stream.size));
}

// --- ReadDump's output ---

static DumpReading ReadDumpText(std::u16string const &path)
{
    DumpReading reading{0, ""};
    reading.result = QzSysError::ReadDump(
        path.c_str(),
        [](char const *text, void *out) { static_cast<std::string *>(out)->append(text); },
        &reading.text);
    return reading;
}

// The system line that the running kernel should give, from uname(2).
static std::string ExpectedSystemLine()
{
    struct utsname names;
    if (uname(&names) != 0)
        return "uname failed";
    int major = 0, minor = 0, patch = 0;
    std::sscanf(names.release, "%d.%d.%d", &major, &minor, &patch);
    return "Linux " + std::to_string(major) + "." + std::to_string(minor) + " " +
           std::string(names.release).substr(0, 31) + " (build " + std::to_string(patch) + ")\n";
}

static std::string PartHeader(int index)
{
    return "\n\nLog Part " + std::to_string(index) + "\n";
}

// ReadDump's text cut at the part headers: the system line, then each part.
static std::vector<std::string> SplitAtParts(std::string const &text)
{
    std::vector<std::string> pieces;
    std::size_t start = 0;
    for (int index = 0;; ++index) {
        std::size_t const at = text.find(PartHeader(index), start);
        pieces.push_back(text.substr(start, at - start));
        if (at == std::string::npos)
            return pieces;
        start = at + PartHeader(index).size();
    }
}

// --- Crashes and callbacks, each run in a child ---

// An address in the never-mapped first page; not null, which a sanitizer
// would report before the fault happens.
constexpr std::uintptr_t kFaultAddress = 16;

static void CrashBySegv()
{
    volatile std::uintptr_t address = kFaultAddress;
    *reinterpret_cast<int volatile *>(address) = 1;
}

// Called through a volatile pointer, so the compiler cannot see the throw.
static void (*volatile g_thrower)() = [] { throw std::runtime_error("uncaught"); };

static volatile int g_never = -1;  // a depth that Recurse never reaches

// Deep enough to overflow any stack; the volatile array keeps each frame.
static int Recurse(int depth)
{
    if (depth == g_never)
        return 0;
    volatile char frame[256];
    frame[0] = static_cast<char>(depth);
    return Recurse(depth + 1) + frame[0];
}

static void LogTwoLines()
{
    QzSysError::LogUTF8String("first line\n");
    QzSysError::LogUTF8String("second line\n");
}

// Runs in a signal handler, so no heap and no stdio: the (ASCII) path goes
// to standard error by write(2), where the death test looks for it.
static int VetoAndPrintPath(LtWChar const *path)
{
    for (char narrow; *path != 0; ++path) {
        narrow = static_cast<char>(*path);
        if (write(STDERR_FILENO, &narrow, 1) != 1)
            break;
    }
    return 0;
}

static char g_extra_block[] = "memory from the callback, kept in the dump";

// Gives the block once, then answers that there is no more.
static int GiveOneBlock(void **block, unsigned *size)
{
    static int calls = 0;
    *block = g_extra_block;
    *size = sizeof(g_extra_block);
    return calls++ == 0;
}

namespace {

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

    DumpReading ReadBytesAsDump(std::string const &bytes)
    {
        std::ofstream(PathOf("patched.dmp"), std::ios::binary | std::ios::trunc) << bytes;
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
    } const rows[] = {
        {"segv", CrashBySegv, SIGSEGV, ""},
        {"abort", [] { std::abort(); }, SIGABRT, ""},
        {"unhandled_post",
         [] {
             QzError::Initialise();
             QzError::Post(QzSysError::eERROR, nullptr, "unhandled post %d", 7);
         },
         SIGABRT, "No handler for error"},
        {"escaped_exception",
         [] {
             QzSysError::AbortOnException([](void *) { throw std::runtime_error("escaped"); },
                                          nullptr);
         },
         SIGABRT, ""},
        // Leaving a noexcept function by an exception calls std::terminate.
        {"uncaught_exception", []() noexcept { g_thrower(); }, SIGABRT, ""},
        {"stack_overflow", [] { std::printf("%d\n", Recurse(0)); }, SIGSEGV, ""},
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
        EXPECT_EQ(LittleEndian(ReadFile(PathOf(file)), 28, 4),
                  static_cast<std::uint64_t>(row.signal_number));

        DumpReading const reading = ReadDumpText(WidePathOf(file));
        EXPECT_EQ(reading.result, 1);
        std::vector<std::string> const pieces = SplitAtParts(reading.text);
        ASSERT_EQ(pieces.size(), 4u) << reading.text;
        EXPECT_EQ(pieces[0], ExpectedSystemLine());
        EXPECT_EQ(pieces[1].rfind("first line\nsecond line\n", 0), 0u) << pieces[1];
        EXPECT_NE(pieces[1].find(row.also_logged), std::string::npos);
        EXPECT_EQ(pieces[2], "Empty log\n");
        EXPECT_EQ(pieces[3], "Empty log\n");
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
    log_a_lot();
    std::string const replay = ReplayLog();
    std::size_t const gap = replay.find(".\n.\n.\n.\n.\n");
    ASSERT_NE(gap, std::string::npos);

    DumpReading const reading = ReadDumpText(WidePathOf("wrapped.dmp"));
    ASSERT_EQ(reading.result, 1);
    std::vector<std::string> const parts = SplitAtParts(reading.text);
    ASSERT_EQ(parts.size(), 4u);
    EXPECT_EQ(parts[1], replay.substr(0, gap));
    EXPECT_FALSE(parts[2].empty());
    EXPECT_EQ(parts[2] + parts[3], replay.substr(gap + 10));
    EXPECT_EQ(parts[3].substr(parts[3].size() - 16), "tail of the run\n");
}

// The file of a SIGSEGV dump, field by field as documented.
TEST_F(QzSysErrorDumpDeathTest, SegvDumpFollowsTheFileLayout)
{
    unsigned const flags = 0x15;  // bit 1 clear; the rest has no meaning but is kept
    EXPECT_EXIT(CrashWithDump("layout.dmp", CrashBySegv, LogTwoLines, flags),
                testing::ExitedWithCode(4), "");
    std::string const dump = ReadFile(PathOf("layout.dmp"));
    EXPECT_EQ(dump.substr(0, 8), std::string("QZDUMP\0\1", 8));
    EXPECT_EQ(LittleEndian(dump, 8, 4), 1u) << "format version";
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
    EXPECT_EXIT(CrashWithDump("vetoed.dmp", CrashBySegv, LogTwoLines, 0, VetoAndPrintPath),
                testing::KilledBySignal(SIGSEGV), PathOf("vetoed.dmp"));
    EXPECT_FALSE(Exists(PathOf("vetoed.dmp")));
}

// The post-dump callback runs once the dump is whole; it may end the process
// itself.
TEST_F(QzSysErrorDumpDeathTest, PostDumpCallbackFollowsAWholeDump)
{
    EXPECT_EXIT(CrashWithDump(
                    "post.dmp", [] { std::abort(); }, LogTwoLines, 0, nullptr,
                    [](LtWChar const *) { std::_Exit(7); }),
                testing::ExitedWithCode(7), "");
    EXPECT_EQ(ReadDumpText(WidePathOf("post.dmp")).result, 1);
}

// The memory callback's block lands in the memory stream after the stack,
// unless flag bit 1 keeps it out.
TEST_F(QzSysErrorDumpDeathTest, MemoryCallbackBlocksFollowTheFlag)
{
    std::string const block(g_extra_block, sizeof(g_extra_block));
    for (unsigned const flags : {0u, QzSysError::kDumpFlagNoCallbackMemory}) {
        SCOPED_TRACE(flags);
        std::string const file = "memory" + std::to_string(flags) + ".dmp";
        EXPECT_EXIT(
            CrashWithDump(file, CrashBySegv, LogTwoLines, flags, nullptr, nullptr, GiveOneBlock),
            testing::ExitedWithCode(4), "");
        std::string const memory = StreamBytes(ReadFile(PathOf(file)), 5);
        std::size_t const second_record = 16 + static_cast<std::size_t>(LittleEndian(memory, 8, 8));
        if (flags != 0) {
            EXPECT_EQ(memory.size(), second_record);
            continue;
        }
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
// the process goes on. Before anything is logged the first part says so in
// its own words.
TEST_F(QzSysErrorDumpTest, WriteDumpOfARunningProcess)
{
    QzSysError::WriteDump(WidePathOf("empty.dmp").c_str(), 1, 0);
    EXPECT_EQ(SplitAtParts(ReadDumpText(WidePathOf("empty.dmp")).text)[1], "Empty Log\n");

    LogTwoLines();
    QzSysError::WriteDump(WidePathOf("running.dmp").c_str(), 1, 0x3);
    QzSysError::LogUTF8String("still running\n");
    std::string const dump = ReadFile(PathOf("running.dmp"));
    EXPECT_EQ(LittleEndian(dump, 28, 4), 0u) << "no signal";
    EXPECT_EQ(LittleEndian(dump, 24, 4), 0x3u);
    EXPECT_EQ(LittleEndian(dump, 12, 4), 8u);
    EXPECT_EQ(QzSysError::IsDumpOnUnhandledException(), 0);

    DumpReading const reading = ReadDumpText(WidePathOf("running.dmp"));
    EXPECT_EQ(reading.result, 1);
    EXPECT_EQ(reading.text, ExpectedSystemLine() + PartHeader(0) + "first line\nsecond line\n" +
                                PartHeader(1) + "Empty log\n" + PartHeader(2) + "Empty log\n");
}

// Without the log there is nothing to read: the system line, then a failure
// with a warning that says why.
TEST_F(QzSysErrorDumpTest, DumpWithoutLogFailsToRead)
{
    std::string const dump = WriteSmallDump("nolog.dmp", 0);
    EXPECT_EQ(LittleEndian(dump, 12, 4), 5u) << "no log streams";
    QzPostRecording recording;
    DumpReading const reading = ReadDumpText(WidePathOf("nolog.dmp"));
    EXPECT_EQ(reading.result, 0);
    EXPECT_EQ(reading.text, ExpectedSystemLine());
    ASSERT_EQ(QzPostRecorder::Posts().size(), 1u);
    EXPECT_EQ(QzPostRecorder::Posts()[0].severity, QzSysError::eWARNING);
    EXPECT_NE(QzPostRecorder::Posts()[0].message.find(u"no log"), std::u16string::npos);
}

// A real dump patched in one field: damage is refused before anything is
// printed (cut files: below); odd log parts are named in their own words.
TEST_F(QzSysErrorDumpTest, ReadDumpOfPatchedDumps)
{
    std::string const good = WriteSmallDump("good.dmp", 1);
    ASSERT_EQ(ReadBytesAsDump(good).result, 1);
    std::size_t const system_entry = FindStream(good, 7).entry_at;
    DumpStream const log = FindStream(good, 0x10000);
    std::string const head = ExpectedSystemLine() + PartHeader(0);
    std::string const two_empty_parts =
        PartHeader(1) + "Empty log\n" + PartHeader(2) + "Empty log\n";
    struct Row {
        char const *name;
        std::size_t at;  // where the patch goes
        int width;
        std::uint64_t value;
        int result;
        std::string text;
    } const rows[] = {
        {"bad_magic", 0, 1, 'X', 0, ""},
        {"magic_last_byte", 7, 1, 2, 0, ""},
        {"version_2", 8, 4, 2, 0, ""},
        {"huge_stream_count", 12, 4, 0xFFFFFFFFu, 0, ""},
        {"count_past_directory", 12, 4, 9, 0, ""},
        {"directory_past_end", 16, 8, good.size(), 0, ""},
        {"directory_offset_wraps", 16, 8, ~std::uint64_t{0} - 8, 0, ""},
        {"stream_past_end", log.entry_at + 8, 8, good.size(), 0, ""},
        {"stream_size_past_end", log.entry_at + 16, 8, good.size(), 0, ""},
        {"offset_plus_size_wraps", log.entry_at + 16, 8, ~std::uint64_t{0} - 100, 0, ""},
        {"system_size_55", system_entry + 16, 8, 55, 0, ""},
        {"system_size_57", system_entry + 16, 8, 57, 0, ""},
        {"system_missing", system_entry, 4, 0x99, 0, ""},
        // 23 characters of log and their nul make 24.
        {"unterminated_part", static_cast<std::size_t>(log.offset + log.size - 1), 1, '!', 1,
         head + "Log length 24 is not NULL terminated\n" + two_empty_parts},
        {"empty_first_part", log.entry_at + 16, 8, 0, 1, head + "Empty log\n" + two_empty_parts},
        {"no_third_part", FindStream(good, 0x10002).entry_at, 4, 0x20000, 1,
         head + "first line\nsecond line\n" + PartHeader(1) + "Empty log\n"},
    };
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        std::string patched = good;
        PutLittleEndian(&patched, row.at, row.width, row.value);
        DumpReading const reading = ReadBytesAsDump(patched);
        EXPECT_EQ(reading.result, row.result);
        EXPECT_EQ(reading.text, row.text);
    }
    EXPECT_EQ(ReadDumpText(WidePathOf("missing.dmp")).result, 0);
    EXPECT_EQ(ReadDumpText(WidePathOf("")).result, 0) << "a directory";
}

// Every truncation of a real dump is refused: the directory or some stream
// always reaches past the cut.
TEST_F(QzSysErrorDumpTest, ReadDumpRefusesEveryTruncation)
{
    std::string const good = WriteSmallDump("cut.dmp", 1);
    ASSERT_EQ(ReadDumpText(WidePathOf("cut.dmp")).result, 1);
    std::vector<std::size_t> read_lengths;  // the first few are enough to report
    for (std::size_t length = good.size(); length-- > 0 && read_lengths.size() < 5;) {
        std::filesystem::resize_file(PathOf("cut.dmp"), length);
        if (ReadDumpText(WidePathOf("cut.dmp")).result != 0)
            read_lengths.push_back(length);
    }
    EXPECT_TRUE(read_lengths.empty()) << "a dump cut at " << read_lengths.front() << " was read";
}

// The system line for each platform and version that has a name of its own.
TEST_F(QzSysErrorDumpTest, SystemLinesOfEachPlatform)
{
    std::string good = WriteSmallDump("system.dmp", 1);
    std::size_t const record = static_cast<std::size_t>(FindStream(good, 7).offset);
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
    } const rows[] = {{1, 4, 0, "Windows 95"},
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
                      {100, 6, 1, "Linux 6.1"}};
    for (Row const &row : rows) {
        SCOPED_TRACE(row.name);
        PutLittleEndian(&good, record + 4, 4, row.platform);
        PutLittleEndian(&good, record + 8, 4, row.major);
        PutLittleEndian(&good, record + 12, 4, row.minor);
        DumpReading const reading = ReadBytesAsDump(good);
        EXPECT_EQ(reading.result, 1);
        EXPECT_EQ(SplitAtParts(reading.text)[0],
                  std::string(row.name) + " Service Pack 3 (build 2600)\n");
    }
    // A release text that fills all 32 bytes is still printed as a text.
    for (std::size_t i = 0; i < 32; ++i)
        good[record + 24 + i] = 'r';
    EXPECT_EQ(SplitAtParts(ReadBytesAsDump(good).text)[0],
              "Linux 6.1 " + std::string(32, 'r') + " (build 2600)\n");
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
