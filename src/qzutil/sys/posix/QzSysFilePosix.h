// QzSysFilePosix.h: what the POSIX parts of QzSysFile share: the path form
// that the kernel sees, the one errno mapping, and the EINTR retry.
// Internal: never installed, included only by files under sys/posix/.
#pragma once

#include <cerrno>
#include <cstddef>
#include <string>

#include "qzutil/frame/LtTypes.h"

class QzWideStringBuffer;

// Class of statics.
//
// Threads: any thread; the last error is per thread.
class QzSysFilePosix {
public:
    // The path as the kernel takes it: UTF-8 (pairs combined, a lone
    // surrogate in its three-byte form) with each "\" turned into "/".
    // False for a null path, with the last error set.
    [[nodiscard]] static bool KernelPath(LtWChar const *path, std::string *out);

    // Records errno, mapped to QzSysFile::ErrorCode, as the calling thread's
    // last error; returns false so that failures read `return RecordErrno();`.
    static bool RecordErrno();
    // Records an ErrorCode value directly; returns false likewise.
    static bool RecordError(int code);
    static int LastError();

    // The text of a name or path from the system (UTF-8; invalid bytes become
    // U+FFFD) into out.
    static void FromKernelText(char const *text, QzWideStringBuffer *out);

    // Loops over short counts and EINTR. ReadFull stops early only at the end
    // of the file. *done gets the bytes moved, also on failure; false with
    // the last error set on failure.
    static bool ReadFull(int fd, void *buffer, std::size_t size, std::size_t *done);
    static bool WriteAll(int fd, void const *data, std::size_t size, std::size_t *done);

    // Calls `call` until it does not fail with EINTR; returns its result.
    template <typename Call>
    static auto RetryOnEintr(Call call) -> decltype(call())
    {
        decltype(call()) result;
        do {
            result = call();
        } while (result == -1 && errno == EINTR);
        return result;
    }
};
