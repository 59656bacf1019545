// QzDumpCommand.cpp: "qz dump read FILE" prints a crash dump's system line
// and log; "qz dump test" crashes a child process on purpose and reads back
// the dump it leaves.

#include "QzCommands.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"
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
    "Starts a child process that sets up crash dumps in a temporary folder,\n"
    "logs a few lines and crashes with SIGSEGV. Checks that the child exited\n"
    "with code 4 after writing its dump, then prints the dump as qz dump read\n"
    "does and removes the folder. --keep FILE copies the dump to FILE first.\n";

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

// The child of "qz dump test": never returns.
[[noreturn]] static void CrashWithDump(std::string const &dump_path)
{
    struct rlimit no_core = {0, 0};
    (void)setrlimit(RLIMIT_CORE, &no_core);  // should the dump fail, leave no core file either
    QzWideStringBuffer wide_path;
    (void)QzString::UTF8ToWideString(dump_path.c_str(), &wide_path);  // a path of ours: ASCII
    QzSysError::SetDumpOnUnhandledException(wide_path.GetString(), 1, 0, nullptr, nullptr, nullptr);
    QzSysError::LogUTF8String("qz dump test: the child is about to crash\n");
    QzError::Log("qz dump test: child process %d\n", static_cast<int>(getpid()));
    QzSysError::LogUTF8String("qz dump test: writing to an address that is never mapped\n");
    volatile std::uintptr_t address = 16;  // in the first page, which is never mapped
    *reinterpret_cast<int volatile *>(address) = 1;
    std::_Exit(3);  // not reached
}

static bool CopyFile(std::string const &from, char const *to)
{
    std::error_code error;
    std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing, error);
    return !error;
}

static int RunTestInFolder(std::string const &folder, char const *keep_path)
{
    std::string const dump_path = folder + "/crash.qzdump";
    std::fflush(stdout);
    pid_t const child = fork();
    if (child < 0) {
        std::perror("qz dump test: fork");
        return 1;
    }
    if (child == 0)
        CrashWithDump(dump_path);
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        std::perror("qz dump test: waitpid");
        return 1;
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 4) {
        if (WIFSIGNALED(status))
            std::fprintf(stderr, "qz dump test: the child died by signal %d, not exit code 4\n",
                         WTERMSIG(status));
        else
            std::fprintf(stderr, "qz dump test: the child exited with %d, not 4\n",
                         WEXITSTATUS(status));
        return 1;
    }
    std::printf("qz dump test: child %d crashed and exited with 4; its dump:\n\n",
                static_cast<int>(child));
    if (keep_path != nullptr && !CopyFile(dump_path, keep_path)) {
        std::fprintf(stderr, "qz dump test: cannot copy the dump to %s\n", keep_path);
        return 1;
    }
    return PrintDump("qz dump test", dump_path.c_str());
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
    std::string folder = std::filesystem::temp_directory_path().string() + "/qz-dump-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        std::perror("qz dump test: mkdtemp");
        return 1;
    }
    int const result = RunTestInFolder(folder, keep_path);
    std::error_code ignored;  // a leftover temporary folder is not worth a failure
    std::filesystem::remove_all(folder, ignored);
    return result;
}

int RunDumpCommand(int argc, char **argv)
{
    if (argc < 2) {
        std::fputs("qz dump: needs read or test (see qz dump --help)\n", stderr);
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
