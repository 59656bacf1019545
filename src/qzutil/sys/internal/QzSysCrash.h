// QzSysCrash.h: the crash side of the platform under QzSysError: handlers
// for fatal signals and std::terminate, the async-signal-safe dump writer,
// and the file view that the dump reader works on. Also the dump file's
// layout, shared by that writer and the reader. Internal: never installed.
#pragma once

#include <cstddef>

#include "qzutil/frame/LtTypes.h"

// The dump file format. All numbers are little-endian. These values are part
// of the file format: they never change, and new ones are only added.
//
//   header (kHeaderBytes): magic (8), version (4), stream count (4),
//     directory offset (8), the dump flags (4), signal number (4)
//   directory: one entry of kDirectoryEntryBytes per stream: type (4),
//     0 (4), offset (8), size (8)
//   streams, in the order of the Stream* types below.
namespace QzDumpFormat {

constexpr char kMagic[8] = {'Q', 'Z', 'D', 'U', 'M', 'P', 0, 1};
constexpr LtNat32 kVersion = 1;
constexpr std::size_t kHeaderBytes = 32;
constexpr std::size_t kDirectoryEntryBytes = 24;

// Offsets of the header fields.
constexpr std::size_t kVersionAt = 8;
constexpr std::size_t kStreamCountAt = 12;
constexpr std::size_t kDirectoryOffsetAt = 16;
constexpr std::size_t kFlagsAt = 24;
constexpr std::size_t kSignalAt = 28;

// Stream types, in the order the writer emits them.
constexpr LtNat32 kSystemStream = 7;           // the system record below
constexpr LtNat32 kContextStream = 6;          // signal, si_code, address, thread, registers
constexpr LtNat32 kLogPartStream = 0x10000;    // + 0, 1, 2: the three log parts, nul included
constexpr LtNat32 kMapsStream = 0x10010;       // a copy of /proc/self/maps
constexpr LtNat32 kBacktraceStream = 0x10011;  // return addresses, 8 bytes each
constexpr LtNat32 kMemoryStream = 5;           // records: address (8), size (8), bytes

// The system record, exactly kSystemRecordBytes.
constexpr std::size_t kSystemRecordBytes = 56;
constexpr std::size_t kArchitectureAt = 0;   // 2 bytes: 9 x86-64, 12 arm64
constexpr std::size_t kProcessorsAt = 2;     // 2 bytes: processors online
constexpr std::size_t kPlatformAt = 4;       // kPlatformLinux here
constexpr std::size_t kMajorVersionAt = 8;   // kernel major version
constexpr std::size_t kMinorVersionAt = 12;  // kernel minor version
constexpr std::size_t kBuildAt = 16;         // kernel patch level
constexpr std::size_t kPageSizeAt = 20;
constexpr std::size_t kReleaseAt = 24;  // `uname -r`, nul-padded, at most 31 bytes
constexpr std::size_t kReleaseBytes = 32;
constexpr LtNat32 kPlatformLinux = 100;
constexpr LtNat16 kArchitectureX86_64 = 9;
constexpr LtNat16 kArchitectureArm64 = 12;

constexpr int kLogPartCount = 3;
// Flag bit 1: the memory callback's blocks stay out of the dump.
constexpr unsigned kNoCallbackMemoryFlag = 0x2;

}  // namespace QzDumpFormat

// The signal, its details and the registers of the thread being dumped, as
// the signal handler or getcontext saw them. Defined by the platform file;
// valid only during the call that it is handed to.
struct QzCrashContext;

// The actions of the fatal signals and the terminate handler at one moment,
// kept by QzSysCrash::SaveHandlers.
struct QzSavedCrashHandlers;

// One log part for the dump: `size` bytes from `text`, the closing nul
// included (a well-formed part ends in one).
struct QzDumpLogPart {
    char const *text;
    std::size_t size;
};

// What one dump holds besides the context. Everything is read from a signal
// handler, so it must stay valid and unchanged for the whole write.
struct QzDumpRequest {
    char const *path;                // UTF-8, with "/" separators
    unsigned flags;                  // written to the header as given
    QzDumpLogPart const *log_parts;  // QzDumpFormat::kLogPartCount parts, or null: no log
    // Asked again and again for one more block for the memory stream until
    // it answers 0; null for none.
    int (*memory)(void **block, unsigned *size);
};

// Class of statics over the signal machinery of the operating system.
//
// Threads: install, remove, save and restore from one thread at a time (the
//          frame calls them under its log lock); the handlers run on any
//          thread that faults. A process-wide guard lets one crash at a time
//          reach the hook; a second fault meets the system's default action.
class QzSysCrash {
public:
    // The signal number of an abort (SIGABRT), which the terminate handler and
    // QzSysError::Abort put in the dump header. Checked by the platform file.
    static constexpr int kAbortSignal = 6;

    // Called on the faulting thread, with the guard taken. Returns only when
    // no dump was made (a veto, a file that cannot be created); the caller
    // then gives the crash to the system's default action.
    using CrashHook = void (*)(QzCrashContext const *context);

    // Puts the handlers of SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT and SIGSYS
    // and a terminate handler in place, all calling `hook`, keeping whatever
    // was installed before (unless it was these very handlers). Also gives
    // the calling thread an alternate signal stack of 64 KiB if it has none,
    // prepares the system record and loads the unwinder. Returns 1, or 0 if a
    // signal action could not be set (what was set stays set).
    [[nodiscard]] static int InstallHandlers(CrashHook hook);

    // Puts back the actions and the terminate handler kept by InstallHandlers
    // where the library's handlers are still in place. Nothing if none are.
    static void RemoveHandlers();

    // Gives the calling thread an alternate signal stack of 64 KiB unless it
    // has one, so that a stack overflow there can still be dumped. Returns 1,
    // or 0 when no memory could be mapped for it.
    [[nodiscard]] static int EnsureAlternateStack();

    // Takes the guard and calls `hook` with the context of the caller, as if
    // `signal_number` had arrived here. Returns when the hook did (no dump)
    // or when the guard was already taken; the guard then stays taken, so a
    // following abort() meets the default action.
    static void RunWithCallerContext(int signal_number, CrashHook hook);

    // Writes the dump of `context` as the request says: header, directory,
    // system record, context, log parts, maps, return addresses, memory.
    // Async-signal-safe; no heap, no lock, no stdio. Returns 1 once the whole
    // file is written, 0 if it could not be created or written (a partial
    // file may remain: its header stays zero, so no reader takes it).
    [[nodiscard]] static int WriteDump(QzCrashContext const *context, QzDumpRequest const &request);

    // WriteDump with the context of the calling thread, which runs on:
    // nothing is raised, no handler runs. Not for signal handlers.
    [[nodiscard]] static int WriteDumpOfCaller(QzDumpRequest const &request);

    // The actions now in place for the fatal signals, and the terminate
    // handler. Caller owns the result; RestoreHandlers puts them back and
    // frees it. Null if memory ran out (RestoreHandlers then does nothing).
    [[nodiscard]] static QzSavedCrashHandlers *SaveHandlers();
    static void RestoreHandlers(QzSavedCrashHandlers *saved);

    // The whole file at `path` (UTF-8) mapped for reading. Returns 1 with
    // *data and *size set (*data null for an empty file), or 0 with both
    // cleared when it cannot be opened, sized or mapped.
    [[nodiscard]] static int MapFileForReading(char const *path, void const **data,
                                               std::size_t *size);
    // Ends a mapping of MapFileForReading; nothing for a null `data`.
    static void UnmapFile(void const *data, std::size_t size);
};
