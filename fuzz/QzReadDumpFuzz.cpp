// QzReadDumpFuzz.cpp: libFuzzer target for QzSysError::ReadDump, the reader of
// crash dump files, which may come from anywhere. Each input is written to a
// file and read as a dump; besides not crashing, the reader must hand out
// only terminated texts no longer than the file, print nothing past the
// system line when it fails, and print the first log part when it succeeds.
// Only public headers: the target sees the library as a user does.
#include "QzFuzzCheck.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzSysError.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size);

// Dumps of this library are tens of KiB; longer inputs reach no other path.
constexpr std::size_t kMaxInputBytes = 256 * 1024;
// A system line: fixed words, four numbers and 32 bytes of release text.
constexpr std::size_t kMaxSystemLineBytes = 192;

// A damaged dump is expected here: its warning is taken, so that only a
// precondition or assertion post, a fault of the library, ends the run.
static int TakeInputWarningPost(QzSysError::Severity, QzComponent *, int, void *, LtWChar const *)
{
    return 1;
}

// The file that each input is written to, made once per process.
struct ScratchFile {
    int fd = -1;
    std::string path;
    std::u16string wide_path;
};

static ScratchFile g_scratch;

static void RemoveScratchFile()
{
    (void)unlink(g_scratch.path.c_str());  // a leftover temporary file does no harm
}

static void SetUpOnce()
{
    if (g_scratch.fd >= 0)
        return;
    QzSysError::SetHandler(&TakeInputWarningPost, QzSysError::eWARNING,
                           static_cast<QzComponent *>(nullptr), -1);
    std::string pattern =
        std::filesystem::temp_directory_path().string() + "/qz-read-dump-fuzz-XXXXXX";
    g_scratch.fd = mkstemp(pattern.data());
    QZ_FUZZ_CHECK(g_scratch.fd >= 0, "a scratch file can be made");
    g_scratch.path = pattern;
    g_scratch.wide_path.assign(pattern.begin(), pattern.end());  // temp paths are ASCII
    std::atexit(RemoveScratchFile);
}

static void WriteScratchFile(std::uint8_t const *data, std::size_t size)
{
    QZ_FUZZ_CHECK(ftruncate(g_scratch.fd, 0) == 0, "the scratch file can be emptied");
    std::size_t written = 0;
    while (written < size) {
        ssize_t const count =
            pwrite(g_scratch.fd, data + written, size - written, static_cast<off_t>(written));
        QZ_FUZZ_CHECK(count > 0, "the scratch file can be written");
        written += static_cast<std::size_t>(count);
    }
}

// What ReadDump printed, call by call.
struct Printed {
    std::size_t file_bytes;  // no text may be longer than the file it came from
    int calls;
    std::string all;
};

static void CheckAndKeep(char const *text, void *data)
{
    auto *printed = static_cast<Printed *>(data);
    QZ_FUZZ_CHECK(text != nullptr, "ReadDump prints texts, not null");
    // A text running past its end shows up here under AddressSanitizer.
    std::size_t const length = std::strlen(text);
    QZ_FUZZ_CHECK(length <= std::max(printed->file_bytes, kMaxSystemLineBytes),
                  "a printed text is no longer than the file or a system line");
    if (printed->calls == 0)
        QZ_FUZZ_CHECK(length > 0 && text[length - 1] == '\n',
                      "the first text is the system line, ending in a line break");
    ++printed->calls;
    printed->all.append(text, length);
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const *data, std::size_t size)
{
    SetUpOnce();
    size = std::min(size, kMaxInputBytes);
    WriteScratchFile(data, size);
    Printed printed{size, 0, {}};
    int const result = QzSysError::ReadDump(g_scratch.wide_path.c_str(), CheckAndKeep, &printed);
    QZ_FUZZ_CHECK(result == 0 || result == 1, "ReadDump answers 0 or 1");
    if (result == 0) {
        QZ_FUZZ_CHECK(printed.calls <= 1, "a failed read prints at most the system line");
    } else {
        // The system line, then the first part's heading and its text.
        QZ_FUZZ_CHECK(printed.calls >= 3, "a read dump prints its first log part");
        QZ_FUZZ_CHECK(printed.all.find("\n\nLog Part 0\n") != std::string::npos,
                      "a read dump names its first log part");
    }
    return 0;
}
