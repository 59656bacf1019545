// QzSysErrorPosix.cpp: the crash machinery of QzSysError on Linux: handlers
// for the fatal signals and std::terminate, the alternate signal stack, the
// dump writer, and the read-only file view of the dump reader.
//
// Everything reached from a signal handler uses only open, pwrite, read,
// close, gettid, sigaction, raise and backtrace (whose unwinder is loaded at
// installation), then the frame's _exit: no heap, no stdio, no lock.

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "qzutil/sys/internal/QzSysCrash.h"

static_assert(QzSysCrash::kAbortSignal == SIGABRT, "the dump header names an abort by SIGABRT");
static_assert(sizeof(void *) == 8, "the dump stores addresses in 8 bytes");

namespace Fmt = QzDumpFormat;

struct QzCrashContext {
    int signal_number;  // 0 for a dump of a running process
    int code;           // si_code
    LtNat64 fault_address;
    ucontext_t const *registers;  // borrowed from the handler or the caller's frame
};

static constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS};
static constexpr int kFatalSignalCount = sizeof(kFatalSignals) / sizeof(kFatalSignals[0]);

struct QzSavedCrashHandlers {
    struct sigaction actions[kFatalSignalCount];
    std::terminate_handler terminate;
};

static constexpr std::size_t kAlternateStackBytes = 64 * 1024;
static constexpr std::size_t kStackCopyBytes = 64 * 1024;  // of the dumped stack, from its pointer
static constexpr int kMaxReturnAddresses = 64;
static constexpr int kMaxCallbackBlocks = 1024;  // ends a memory callback that never says "done"
static constexpr std::size_t kCopyChunkBytes = 4096;
static constexpr int kStreamCountWithLog = 8;
static constexpr int kStreamCountWithoutLog = 5;

// Zero at load. Written by InstallHandlers/RemoveHandlers under the caller's
// lock; the handlers read `hook` only.
namespace {
struct InstalledHandlers {
    std::atomic<QzSysCrash::CrashHook> hook;
    QzSavedCrashHandlers previous;  // what the library's handlers replaced
};
}  // namespace

static InstalledHandlers g_installed;
static std::atomic_flag g_crash_guard = ATOMIC_FLAG_INIT;       // taken by the first crash for good
static unsigned char g_system_record[Fmt::kSystemRecordBytes];  // made before any crash

// --- Little-endian encoding ---

static void PutNat16(unsigned char *out, LtNat16 value)
{
    out[0] = static_cast<unsigned char>(value);
    out[1] = static_cast<unsigned char>(value >> 8);
}

static void PutNat32(unsigned char *out, LtNat32 value)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

static void PutNat64(unsigned char *out, LtNat64 value)
{
    for (int i = 0; i < 8; ++i)
        out[i] = static_cast<unsigned char>(value >> (8 * i));
}

// --- The system record ---

// The leading number of `text` and the text after it and one separator.
static LtNat32 ReadVersionNumber(char const **text)
{
    LtNat32 value = 0;
    char const *at = *text;
    while (*at >= '0' && *at <= '9' && value < 100000000u)
        value = value * 10 + static_cast<LtNat32>(*at++ - '0');
    if (*at == '.')
        ++at;
    *text = at;
    return value;
}

static void PrepareSystemRecord()
{
    unsigned char record[Fmt::kSystemRecordBytes] = {};
#if defined(__x86_64__)
    PutNat16(record + Fmt::kArchitectureAt, Fmt::kArchitectureX86_64);
#elif defined(__aarch64__)
    PutNat16(record + Fmt::kArchitectureAt, Fmt::kArchitectureArm64);
#else
#error "the dump records registers of x86-64 and arm64 only"
#endif
    auto const processors = sysconf(_SC_NPROCESSORS_ONLN);
    PutNat16(record + Fmt::kProcessorsAt,
             static_cast<LtNat16>(processors > 0 && processors < 0xFFFF ? processors : 0));
    PutNat32(record + Fmt::kPlatformAt, Fmt::kPlatformLinux);
    PutNat32(record + Fmt::kPageSizeAt, static_cast<LtNat32>(sysconf(_SC_PAGESIZE)));
    struct utsname names;
    if (uname(&names) == 0) {
        char const *release = names.release;  // "6.1.0-18-amd64"
        PutNat32(record + Fmt::kMajorVersionAt, ReadVersionNumber(&release));
        PutNat32(record + Fmt::kMinorVersionAt, ReadVersionNumber(&release));
        PutNat32(record + Fmt::kBuildAt, ReadVersionNumber(&release));
        std::size_t const length = strnlen(names.release, Fmt::kReleaseBytes - 1);
        std::memcpy(record + Fmt::kReleaseAt, names.release, length);
    }
    std::memcpy(g_system_record, record, sizeof(record));
}

// --- The writer ---

namespace {

// Writes to the dump file at explicit offsets, keeping the end of what was
// appended and the first failure. Async-signal-safe.
class DumpFile {
public:
    explicit DumpFile(int fd, LtNat64 offset) : m_fd(fd), m_offset(offset) {}

    bool IsGood() const { return m_is_good; }
    LtNat64 Offset() const { return m_offset; }

    // Appends at the offset.
    void Write(void const *bytes, std::size_t size)
    {
        WriteAt(m_offset, bytes, size);
        if (m_is_good)
            m_offset += size;
    }

    // Writes in place, leaving the offset.
    void WriteAt(LtNat64 offset, void const *bytes, std::size_t size)
    {
        auto const *at = static_cast<unsigned char const *>(bytes);
        while (m_is_good && size > 0) {
            ssize_t const written = pwrite(m_fd, at, size, static_cast<off_t>(offset));
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0) {
                m_is_good = false;
                return;
            }
            at += written;
            size -= static_cast<std::size_t>(written);
            offset += static_cast<LtNat64>(written);
        }
    }

    // Copies process memory that may be partly unmapped: the kernel reports
    // an unreadable page as EFAULT instead of faulting, so the copy stops at
    // the first such page. The raw system call keeps a sanitizer's write
    // interceptor from checking stack bytes that it has poisoned. Returns
    // the bytes copied.
    std::size_t CopyMemory(LtNat64 address, std::size_t size)
    {
        std::size_t copied = 0;
        while (m_is_good && copied < size) {
            LtNat64 const at = address + copied;
            std::size_t chunk = kCopyChunkBytes - static_cast<std::size_t>(at % kCopyChunkBytes);
            if (chunk > size - copied)
                chunk = size - copied;
            auto const written =
                syscall(SYS_pwrite64, m_fd, at, chunk, static_cast<off_t>(m_offset));
            if (written < 0 && errno == EINTR)
                continue;
            if (written <= 0)
                break;  // unreadable memory (or a full disk: then the next write fails)
            copied += static_cast<std::size_t>(written);
            m_offset += static_cast<LtNat64>(written);
            if (static_cast<std::size_t>(written) < chunk)
                break;
        }
        return copied;
    }

private:
    int m_fd;
    LtNat64 m_offset;  // bytes from the start of the file
    bool m_is_good = true;
};

// The directory as the streams are written.
class StreamDirectory {
public:
    void Begin(LtNat32 type, DumpFile const &file)
    {
        m_types[m_count] = type;
        m_offsets[m_count] = file.Offset();
    }
    void End(DumpFile const &file)
    {
        m_sizes[m_count] = file.Offset() - m_offsets[m_count];
        ++m_count;
    }
    int Count() const { return m_count; }

    void Encode(unsigned char *out) const
    {
        for (int i = 0; i < m_count; ++i) {
            unsigned char *entry = out + static_cast<std::size_t>(i) * Fmt::kDirectoryEntryBytes;
            PutNat32(entry, m_types[i]);
            PutNat32(entry + 4, 0);
            PutNat64(entry + 8, m_offsets[i]);
            PutNat64(entry + 16, m_sizes[i]);
        }
    }

private:
    LtNat32 m_types[kStreamCountWithLog] = {};
    LtNat64 m_offsets[kStreamCountWithLog] = {};
    LtNat64 m_sizes[kStreamCountWithLog] = {};
    int m_count = 0;
};

}  // namespace

static LtNat64 StackPointerOf(ucontext_t const *registers)
{
    if (registers == nullptr)
        return 0;
#if defined(__x86_64__)
    return static_cast<LtNat64>(registers->uc_mcontext.gregs[REG_RSP]);
#else
    return registers->uc_mcontext.sp;
#endif
}

// Signal (4), si_code (4), fault address (8), thread id (4), 0 (4), then the
// general registers as the kernel saved them.
static void WriteContextStream(DumpFile *file, QzCrashContext const *context)
{
    unsigned char head[24] = {};
    PutNat32(head, static_cast<LtNat32>(context->signal_number));
    PutNat32(head + 4, static_cast<LtNat32>(context->code));
    PutNat64(head + 8, context->fault_address);
    PutNat32(head + 16, static_cast<LtNat32>(gettid()));
    file->Write(head, sizeof(head));
#if defined(__x86_64__)
    std::size_t const register_bytes = sizeof(context->registers->uc_mcontext.gregs);
#else
    // regs[31], sp, pc and pstate lie one after the other.
    std::size_t const register_bytes = 34 * sizeof(LtNat64);
#endif
    if (context->registers == nullptr) {
        unsigned char const zeros[34 * sizeof(LtNat64)] = {};
        file->Write(zeros, register_bytes);
        return;
    }
#if defined(__x86_64__)
    file->Write(context->registers->uc_mcontext.gregs, register_bytes);
#else
    file->Write(context->registers->uc_mcontext.regs, register_bytes);
#endif
}

static void WriteMapsStream(DumpFile *file)
{
    int const maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (maps < 0)
        return;  // an empty stream: the dump is still worth having
    char chunk[kCopyChunkBytes];
    for (;;) {
        ssize_t const got = read(maps, chunk, sizeof(chunk));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        file->Write(chunk, static_cast<std::size_t>(got));
    }
    close(maps);
}

static void WriteBacktraceStream(DumpFile *file)
{
    void *frames[kMaxReturnAddresses];
    int const count = backtrace(frames, kMaxReturnAddresses);
    unsigned char encoded[kMaxReturnAddresses * 8];
    for (int i = 0; i < count; ++i)
        PutNat64(encoded + 8 * i, reinterpret_cast<LtNat64>(frames[i]));
    file->Write(encoded, static_cast<std::size_t>(count > 0 ? count : 0) * 8);
}

// One memory record: address and size, then the bytes. The size is known
// only once the bytes are copied, so it is written afterwards in place.
static void WriteMemoryRecord(DumpFile *file, LtNat64 address, std::size_t size)
{
    LtNat64 const record_at = file->Offset();
    unsigned char head[16] = {};
    PutNat64(head, address);
    file->Write(head, sizeof(head));
    std::size_t const copied = file->CopyMemory(address, size);
    PutNat64(head + 8, copied);
    file->WriteAt(record_at, head, sizeof(head));
}

static void WriteMemoryStream(DumpFile *file, QzCrashContext const *context,
                              QzDumpRequest const &request)
{
    LtNat64 const stack_pointer = StackPointerOf(context->registers);
    if (stack_pointer != 0)
        WriteMemoryRecord(file, stack_pointer, kStackCopyBytes);
    if (request.memory == nullptr || (request.flags & Fmt::kNoCallbackMemoryFlag) != 0)
        return;
    void *block = nullptr;
    unsigned size = 0;
    for (int i = 0; i < kMaxCallbackBlocks && request.memory(&block, &size) != 0; ++i) {
        if (block != nullptr && size != 0)
            WriteMemoryRecord(file, reinterpret_cast<LtNat64>(block), size);
    }
}

int QzSysCrash::WriteDump(QzCrashContext const *context, QzDumpRequest const &request)
{
    int const fd = open(request.path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return 0;
    int const stream_count =
        request.log_parts != nullptr ? kStreamCountWithLog : kStreamCountWithoutLog;
    LtNat64 const directory_at = Fmt::kHeaderBytes;
    LtNat64 const streams_at =
        directory_at + static_cast<LtNat64>(stream_count) * Fmt::kDirectoryEntryBytes;
    // Streams first; the header comes last, so an unfinished file has none
    // (the bytes before the first stream read as zeros until then).
    DumpFile file(fd, streams_at);
    StreamDirectory directory;

    directory.Begin(Fmt::kSystemStream, file);
    file.Write(g_system_record, sizeof(g_system_record));
    directory.End(file);

    directory.Begin(Fmt::kContextStream, file);
    WriteContextStream(&file, context);
    directory.End(file);

    for (int part = 0; request.log_parts != nullptr && part < Fmt::kLogPartCount; ++part) {
        directory.Begin(Fmt::kLogPartStream + static_cast<LtNat32>(part), file);
        file.Write(request.log_parts[part].text, request.log_parts[part].size);
        directory.End(file);
    }

    directory.Begin(Fmt::kMapsStream, file);
    WriteMapsStream(&file);
    directory.End(file);

    directory.Begin(Fmt::kBacktraceStream, file);
    WriteBacktraceStream(&file);
    directory.End(file);

    directory.Begin(Fmt::kMemoryStream, file);
    WriteMemoryStream(&file, context, request);
    directory.End(file);

    unsigned char entries[kStreamCountWithLog * Fmt::kDirectoryEntryBytes];
    directory.Encode(entries);
    file.WriteAt(directory_at, entries,
                 static_cast<std::size_t>(directory.Count()) * Fmt::kDirectoryEntryBytes);

    unsigned char header[Fmt::kHeaderBytes] = {};
    std::memcpy(header, Fmt::kMagic, sizeof(Fmt::kMagic));
    PutNat32(header + Fmt::kVersionAt, Fmt::kVersion);
    PutNat32(header + Fmt::kStreamCountAt, static_cast<LtNat32>(directory.Count()));
    PutNat64(header + Fmt::kDirectoryOffsetAt, directory_at);
    PutNat32(header + Fmt::kFlagsAt, request.flags);
    PutNat32(header + Fmt::kSignalAt, static_cast<LtNat32>(context->signal_number));
    file.WriteAt(0, header, sizeof(header));

    bool const is_closed = close(fd) == 0;
    return file.IsGood() && is_closed ? 1 : 0;
}

int QzSysCrash::WriteDumpOfCaller(QzDumpRequest const &request)
{
    PrepareSystemRecord();
    ucontext_t registers;
    if (getcontext(&registers) != 0)
        std::memset(&registers, 0, sizeof(registers));
    QzCrashContext const context = {0, 0, 0, &registers};
    return WriteDump(&context, request);
}

// --- The handlers ---

static void SetDefaultAction(int signal_number)
{
    struct sigaction fallback;
    std::memset(&fallback, 0, sizeof(fallback));
    fallback.sa_handler = SIG_DFL;
    sigemptyset(&fallback.sa_mask);
    (void)sigaction(signal_number, &fallback, nullptr);  // cannot fail for these signals
}

// The crash goes on to the system: the default action for the signal, raised
// again. Inside a handler the signal stays blocked until the handler
// returns; a fault then happens again, now with the default action.
static void GiveToDefaultAction(int signal_number)
{
    SetDefaultAction(signal_number);
    (void)raise(signal_number);
}

static void OnFatalSignal(int signal_number, siginfo_t *info, void *registers)
{
    QzSysCrash::CrashHook const hook = g_installed.hook.load();
    if (hook != nullptr && !g_crash_guard.test_and_set()) {
        QzCrashContext const context = {signal_number, info->si_code,
                                        reinterpret_cast<LtNat64>(info->si_addr),
                                        static_cast<ucontext_t const *>(registers)};
        hook(&context);  // returns only when there is no dump
    }
    GiveToDefaultAction(signal_number);
}

static bool IsLibraryAction(struct sigaction const &action)
{
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == OnFatalSignal;
}

// Pure virtual calls and exceptions that nothing catches end here.
[[noreturn]] static void OnTerminate()
{
    QzSysCrash::CrashHook const hook = g_installed.hook.load();
    if (hook != nullptr)
        QzSysCrash::RunWithCallerContext(SIGABRT, hook);
    // No dump: what the process did before, with an abort that dies by its
    // signal instead of coming back here.
    SetDefaultAction(SIGABRT);
    std::terminate_handler const previous = g_installed.previous.terminate;
    if (previous != nullptr && previous != OnTerminate)
        previous();
    abort();
}

void QzSysCrash::RunWithCallerContext(int signal_number, CrashHook hook)
{
    if (g_crash_guard.test_and_set())
        return;
    ucontext_t registers;
    if (getcontext(&registers) != 0)
        std::memset(&registers, 0, sizeof(registers));
    QzCrashContext const context = {signal_number, 0, 0, &registers};
    hook(&context);
}

int QzSysCrash::EnsureAlternateStack()
{
    stack_t current;
    if (sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) == 0 &&
        current.ss_size >= kAlternateStackBytes)
        return 1;
    // Never unmapped: the thread may use it until it ends.
    void *memory = mmap(nullptr, kAlternateStackBytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (memory == MAP_FAILED)
        return 0;
    stack_t stack;
    stack.ss_sp = memory;
    stack.ss_flags = 0;
    stack.ss_size = kAlternateStackBytes;
    if (sigaltstack(&stack, nullptr) != 0) {
        (void)munmap(memory, kAlternateStackBytes);  // not in use: nothing else to do
        return 0;
    }
    return 1;
}

int QzSysCrash::InstallHandlers(CrashHook hook)
{
    // Without its own stack a thread that overflowed its stack is not dumped;
    // every other crash still is, so a failure here does not stop the rest.
    (void)EnsureAlternateStack();
    PrepareSystemRecord();
    // The first backtrace loads the unwinder (dlopen, malloc): not in a handler.
    void *frame = nullptr;
    (void)backtrace(&frame, 1);

    g_installed.hook.store(hook);
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_sigaction = OnFatalSignal;
    sigemptyset(&action.sa_mask);
    // SA_RESETHAND is the sign bit of sa_flags.
    action.sa_flags = static_cast<int>(SA_SIGINFO | SA_ONSTACK | SA_RESETHAND);
    int result = 1;
    for (int i = 0; i < kFatalSignalCount; ++i) {
        struct sigaction previous;
        if (sigaction(kFatalSignals[i], &action, &previous) != 0) {
            result = 0;
            continue;
        }
        if (!IsLibraryAction(previous))
            g_installed.previous.actions[i] = previous;
    }
    std::terminate_handler const previous_terminate = std::set_terminate(OnTerminate);
    if (previous_terminate != OnTerminate)
        g_installed.previous.terminate = previous_terminate;
    return result;
}

void QzSysCrash::RemoveHandlers()
{
    for (int i = 0; i < kFatalSignalCount; ++i) {
        struct sigaction current;
        if (sigaction(kFatalSignals[i], nullptr, &current) == 0 && IsLibraryAction(current))
            (void)sigaction(kFatalSignals[i], &g_installed.previous.actions[i], nullptr);
    }
    if (std::get_terminate() == OnTerminate)
        (void)std::set_terminate(g_installed.previous.terminate);
    g_installed.hook.store(nullptr);
}

QzSavedCrashHandlers *QzSysCrash::SaveHandlers()
{
    auto *saved = static_cast<QzSavedCrashHandlers *>(std::malloc(sizeof(QzSavedCrashHandlers)));
    if (saved == nullptr)
        return nullptr;
    for (int i = 0; i < kFatalSignalCount; ++i) {
        if (sigaction(kFatalSignals[i], nullptr, &saved->actions[i]) != 0) {
            std::memset(&saved->actions[i], 0, sizeof(saved->actions[i]));  // SIG_DFL
        }
    }
    saved->terminate = std::get_terminate();
    return saved;
}

void QzSysCrash::RestoreHandlers(QzSavedCrashHandlers *saved)
{
    if (saved == nullptr)
        return;
    for (int i = 0; i < kFatalSignalCount; ++i)
        (void)sigaction(kFatalSignals[i], &saved->actions[i], nullptr);  // valid: read back above
    (void)std::set_terminate(saved->terminate);
    std::free(saved);
}

// --- The reader's view of a file ---

int QzSysCrash::MapFileForReading(char const *path, void const **data, std::size_t *size)
{
    *data = nullptr;
    *size = 0;
    // Non-blocking, so that naming a FIFO does not wait for a writer.
    int const fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return 0;
    struct stat status;
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        close(fd);
        return 0;
    }
    auto const length = static_cast<std::size_t>(status.st_size);
    if (length == 0) {
        close(fd);
        return 1;
    }
    void *mapping = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, fd, 0);
    close(fd);  // the mapping keeps the file
    if (mapping == MAP_FAILED)
        return 0;
    *data = mapping;
    *size = length;
    return 1;
}

void QzSysCrash::UnmapFile(void const *data, std::size_t size)
{
    if (data != nullptr)
        (void)munmap(const_cast<void *>(data), size);  // a mapping of ours: cannot fail
}
