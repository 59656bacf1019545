// QzDumpCommand.cpp: "qz dump read FILE" prints a crash dump's system line
// and log; "qz dump test" crashes a child process on purpose and reads back
// the dump it leaves.

#include "QzCommands.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

static char const kReadUsage[] =
    "usage: qz dump read FILE\n"
    "\n"
    "Prints the system line and the log parts of the crash dump FILE.\n"
    "Exits with 0 when the dump was read, 1 when it was not.\n";

static char const kTestUsage[] =
    "usage: qz dump test [--keep FILE]\n"
    "\n"
    "Starts a child process (qz dump crash) that sets up crash dumps in a\n"
    "temporary folder, logs a few lines and crashes with SIGSEGV. Checks that\n"
    "the child left its dump, prints it as qz dump read does and removes the\n"
    "folder. --keep FILE copies the dump to FILE first.\n";

static char const kCrashUsage[] =
    "usage: qz dump crash DUMPFILE\n"
    "\n"
    "Sets up crash dumps into DUMPFILE, logs a few lines and crashes with\n"
    "SIGSEGV; the dump handler ends the process with exit code 4. This is the\n"
    "child that qz dump test starts.\n";

static void PrintText(char const *text, void *)
{
    std::fputs(text, stdout);
}

// The last warning that ReadDump posted: why the dump could not be read.
static QzStringBuffer *g_read_failure = nullptr;

static int KeepReadFailure(QzSysError::Severity, QzComponent *, int, void *, LtWChar const *message)
{
    if (g_read_failure != nullptr)
        QzWideString::ExtractUTF8String(message, g_read_failure);
    return 1;
}

// Prints the dump at `path` (UTF-8); on failure says why on standard error.
static int PrintDump(char const *command, char const *path)
{
    QzWideStringBuffer wide_path;
    (void)QzString::UTF8ToWideString(path, &wide_path);  // bad bytes become U+FFFD: the open fails
    QzStringBuffer failure;
    g_read_failure = &failure;
    QzErrorOverride take_warnings(KeepReadFailure, QzSysError::eWARNING, QzSysError::GetComponent(),
                                  -1);
    std::fflush(stdout);
    int const result = QzSysError::ReadDump(wide_path.GetString(), PrintText, nullptr);
    std::fflush(stdout);
    g_read_failure = nullptr;
    if (result == 0) {
        std::fprintf(stderr, "%s: %s\n", command,
                     failure.GetLength() > 0 ? failure.GetString() : "the dump could not be read");
        return 1;
    }
    return 0;
}

static int RunRead(int argc, char **argv)
{
    if (argc != 2) {
        std::fputs("qz dump read: needs one FILE (see qz dump read --help)\n", stderr);
        return 2;
    }
    return PrintDump("qz dump read", argv[1]);
}

// "qz dump crash DUMPFILE", the child of "qz dump test": never returns.
static int RunCrash(int argc, char **argv)
{
    if (argc != 2) {
        std::fputs("qz dump crash: needs one DUMPFILE (see qz dump crash --help)\n", stderr);
        return 2;
    }
    QzWideStringBuffer wide_path;
    (void)QzString::UTF8ToWideString(argv[1], &wide_path);
    QzSysError::SetDumpOnUnhandledException(wide_path.GetString(), 1, 0, nullptr, nullptr, nullptr);
    QzSysError::LogUTF8String("qz dump test: the child is about to crash\n");
    QzSysError::LogUTF8String("qz dump test: writing to an address that is never mapped\n");
    volatile std::uintptr_t address = 16;  // in the first page, which is never mapped
    *reinterpret_cast<int volatile *>(address) = 1;
    return 3;  // not reached
}

// Runs the crashing child into `folder` and prints the dump it leaves.
static int RunTestInFolder(QzWideStringBuffer const &folder, char const *keep_path)
{
    QzWideStringBuffer dump_path;
    QzSysFile::PushPathW(folder.GetString(), u"crash.qzdump", &dump_path, true);
    QzWideStringBuffer self;
    if (!QzSysFile::GetExecutablePathW(&self)) {
        std::fputs("qz dump test: cannot find the qz executable\n", stderr);
        return 1;
    }
    QzWideStringBuffer arguments;
    arguments.Format(u"dump crash \"%ls\"", dump_path.GetString());
    std::fflush(stdout);
    // The child ends with exit code 4 after its dump, which the runner
    // reports as a failure: the dump itself is what tells success.
    (void)QzSysFile::RunExecutable(self.GetString(), arguments.GetString(), true);
    if (!QzSysFile::ExistsW(dump_path.GetString())) {
        std::fputs("qz dump test: the child left no dump\n", stderr);
        return 1;
    }
    std::printf("qz dump test: the child crashed and left its dump:\n\n");
    QzStringBuffer utf8_path;
    QzWideString::ExtractUTF8String(dump_path.GetString(), &utf8_path);
    if (keep_path != nullptr) {
        QzWideStringBuffer keep;
        (void)QzString::UTF8ToWideString(keep_path, &keep);
        if (!QzSysFile::CopyFileW(dump_path.GetString(), keep.GetString(), false)) {
            std::fprintf(stderr, "qz dump test: cannot copy the dump to %s\n", keep_path);
            return 1;
        }
    }
    return PrintDump("qz dump test", utf8_path.GetString());
}

static int RunTest(int argc, char **argv)
{
    char const *keep_path = nullptr;
    if (argc == 3 && std::strcmp(argv[1], "--keep") == 0) {
        keep_path = argv[2];
    } else if (argc != 1) {
        std::fputs("qz dump test: takes only --keep FILE (see qz dump test --help)\n", stderr);
        return 2;
    }
    QzWideStringBuffer folder;
    if (!QzSysFile::MakeTempFileNameW(nullptr, u"qz-dump", nullptr, &folder) ||
        !QzSysFile::CreateDirW(folder.GetString())) {
        std::fputs("qz dump test: cannot make a temporary folder\n", stderr);
        return 1;
    }
    int const result = RunTestInFolder(folder, keep_path);
    (void)QzSysFile::DeleteW(folder.GetString(), true, true);  // a leftover is no failure
    return result;
}

int RunDumpCommand(int argc, char **argv)
{
    if (argc < 2) {
        std::fputs("qz dump: needs read, test or crash (see qz dump --help)\n", stderr);
        return 2;
    }
    struct Subcommand {
        char const *name;
        char const *usage;
        int (*run)(int argc, char **argv);
    };
    static Subcommand const kSubcommands[] = {
        {"read", kReadUsage, RunRead},
        {"test", kTestUsage, RunTest},
        {"crash", kCrashUsage, RunCrash},
    };
    for (Subcommand const &subcommand : kSubcommands) {
        if (std::strcmp(argv[1], subcommand.name) != 0)
            continue;
        if (WantsHelp(argc - 1, argv + 1)) {
            std::fputs(subcommand.usage, stdout);
            return 0;
        }
        QzError::Initialise();
        int const result = subcommand.run(argc - 1, argv + 1);
        QzError::Terminate();
        return result;
    }
    std::fprintf(stderr, "qz dump: unknown subcommand '%s' (see qz dump --help)\n", argv[1]);
    return 2;
}
