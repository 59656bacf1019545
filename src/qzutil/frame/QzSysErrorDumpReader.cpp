// QzSysErrorDumpReader.cpp: QzSysError::ReadDump, which prints the system line
// and the log of a crash dump. A dump is outside data: every size and offset
// in it is checked against the file before it is used.

#include <climits>
#include <cstring>

#include "qzutil/frame/QzSysError.h"
#include "qzutil/frame/internal/QzFramePath.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysCrash.h"

namespace Fmt = QzDumpFormat;

// More streams than any writer of ours makes; a count above it is damage.
static constexpr LtNat32 kMaxStreams = 64;
static constexpr std::size_t kMaxDumpPathBytes = 4096;  // PATH_MAX, with the nul
static constexpr std::size_t kLineBytes = 192;          // the longest system line fits

static LtNat32 ReadNat32(unsigned char const *bytes)
{
    LtNat32 value = 0;
    for (int i = 3; i >= 0; --i)
        value = (value << 8) | bytes[i];
    return value;
}

static LtNat64 ReadNat64(unsigned char const *bytes)
{
    LtNat64 value = 0;
    for (int i = 7; i >= 0; --i)
        value = (value << 8) | bytes[i];
    return value;
}

namespace {

// A file mapped for reading for one scope.
//
// Ownership: owns the mapping; neither copyable nor movable.
class MappedFile {
public:
    MappedFile() = default;
    ~MappedFile() { QzSysCrash::UnmapFile(m_data, m_size); }
    MappedFile(MappedFile const &) = delete;
    MappedFile &operator=(MappedFile const &) = delete;

    [[nodiscard]] int Map(char const *path)
    {
        void const *data = nullptr;
        int const result = QzSysCrash::MapFileForReading(path, &data, &m_size);
        m_data = static_cast<unsigned char const *>(data);
        return result;
    }
    unsigned char const *Data() const { return m_data; }
    std::size_t Size() const { return m_size; }

private:
    unsigned char const *m_data = nullptr;
    std::size_t m_size = 0;  // bytes
};

struct Stream {
    unsigned char const *bytes;  // null when the dump has no such stream
    LtNat64 size;
};

// The streams of a dump whose header and directory are whole.
//
// Invariant: after Open returns null, every entry of the directory lies
//            inside the file, so Find hands out only readable bytes.
class DumpDirectory {
public:
    // Null when the file is a dump whose every stream lies inside it, else
    // the reason it is not.
    char const *Open(unsigned char const *data, std::size_t size)
    {
        if (size < Fmt::kHeaderBytes || std::memcmp(data, Fmt::kMagic, sizeof(Fmt::kMagic)) != 0)
            return "not a dump file";
        if (ReadNat32(data + Fmt::kVersionAt) != Fmt::kVersion)
            return "unknown dump format version";
        LtNat32 const count = ReadNat32(data + Fmt::kStreamCountAt);
        LtNat64 const directory_at = ReadNat64(data + Fmt::kDirectoryOffsetAt);
        if (count > kMaxStreams || !Holds(size, directory_at, count * Fmt::kDirectoryEntryBytes))
            return "stream directory outside the file";
        for (LtNat32 i = 0; i < count; ++i) {
            unsigned char const *entry = data + directory_at + i * Fmt::kDirectoryEntryBytes;
            if (!Holds(size, ReadNat64(entry + 8), ReadNat64(entry + 16)))
                return "stream outside the file";
        }
        m_data = data;
        m_directory = data + directory_at;
        m_count = count;
        return nullptr;
    }

    // The first stream of that type.
    Stream Find(LtNat32 type) const
    {
        for (LtNat32 i = 0; i < m_count; ++i) {
            unsigned char const *entry = m_directory + i * Fmt::kDirectoryEntryBytes;
            if (ReadNat32(entry) == type)
                return {m_data + ReadNat64(entry + 8), ReadNat64(entry + 16)};
        }
        return {nullptr, 0};
    }

private:
    // Whether [offset, offset + length) lies in a file of `size` bytes,
    // without overflow for any values.
    static bool Holds(std::size_t size, LtNat64 offset, LtNat64 length)
    {
        return offset <= size && length <= size - offset;
    }

    unsigned char const *m_data = nullptr;
    unsigned char const *m_directory = nullptr;
    LtNat32 m_count = 0;
};

}  // namespace

static int AsInt(LtNat64 value)
{
    return value > static_cast<LtNat64>(INT_MAX) ? INT_MAX : static_cast<int>(value);
}

// The name of the system for platforms 1 (Windows 9x) and 2 (Windows NT),
// written into line; false for other platforms.
static bool NameWindows(LtNat32 platform, int major, int minor, char *line)
{
    if (platform == 1) {
        if (major == 4 && minor == 0)
            return QzSysString::Sprintf(line, kLineBytes, "Windows 95") >= 0;
        if (major == 4 && minor == 10)
            return QzSysString::Sprintf(line, kLineBytes, "Windows 98") >= 0;
        if (major == 4 && minor == 90)
            return QzSysString::Sprintf(line, kLineBytes, "Windows ME") >= 0;
        if (major == 4)
            return QzSysString::Sprintf(line, kLineBytes, "Windows 9X 4.%d", minor) >= 0;
        return QzSysString::Sprintf(line, kLineBytes, "Windows 9X %d.%d", major, minor) >= 0;
    }
    if (platform == 2) {
        if (major == 4)
            return QzSysString::Sprintf(line, kLineBytes, "Windows NT 4.%d", minor) >= 0;
        static char const *const kFiveNames[] = {"Windows 2000", "Windows XP",
                                                 "Windows Server 2003"};
        if (major == 5 && minor >= 0 && minor <= 2)
            return QzSysString::Sprintf(line, kLineBytes, "%s", kFiveNames[minor]) >= 0;
        return QzSysString::Sprintf(line, kLineBytes, "Windows NT version %d.%d", major, minor) >=
               0;
    }
    return false;
}

// The system line of a 56-byte system record: the system and its version,
// then the release text and the build.
static void PrintSystemLine(unsigned char const *record, QzSysError::LogOutput print, void *data)
{
    LtNat32 const platform = ReadNat32(record + Fmt::kPlatformAt);
    int const major = static_cast<int>(ReadNat32(record + Fmt::kMajorVersionAt));
    int const minor = static_cast<int>(ReadNat32(record + Fmt::kMinorVersionAt));
    int const build = static_cast<int>(ReadNat32(record + Fmt::kBuildAt));
    char release[Fmt::kReleaseBytes + 1] = {};  // terminated even if the file's text is not
    std::memcpy(release, record + Fmt::kReleaseAt, Fmt::kReleaseBytes);

    char line[kLineBytes];
    if (platform == Fmt::kPlatformLinux) {
        (void)QzSysString::Sprintf(line, sizeof(line), "Linux %d.%d", major, minor);
    } else if (!NameWindows(platform, major, minor, line)) {
        (void)QzSysString::Sprintf(line, sizeof(line), "Unknown OS platform %d, version %d.%d",
                                   static_cast<int>(platform), major, minor);
    }
    // Both parts fit: numbers and 32 bytes of release text are far below
    // kLineBytes, and a cut line would still be terminated.
    std::size_t const used = std::strlen(line);
    (void)QzSysString::Sprintf(line + used, sizeof(line) - used, " %hs (build %d)\n", release,
                               build);
    print(line, data);
}

static void PrintLogPart(int index, Stream const &part, QzSysError::LogOutput print, void *data)
{
    char line[kLineBytes];
    (void)QzSysString::Sprintf(line, sizeof(line), "\n\nLog Part %d\n", index);  // always fits
    print(line, data);
    auto const *text = reinterpret_cast<char const *>(part.bytes);
    if (part.size == 0) {
        print("Empty log\n", data);
    } else if (text[part.size - 1] != '\0') {
        (void)QzSysString::Sprintf(line, sizeof(line), "Log length %d is not NULL terminated\n",
                                   AsInt(part.size));
        print(line, data);
    } else if (text[0] == '\0') {
        print("Empty log\n", data);
    } else {
        print(text, data);  // ends at its last byte or before: checked above
    }
}

// Posts why a dump cannot be read, as a warning: a damaged file is bad input,
// not a fault of the program. Returns 0 for the caller to pass on.
static int RefuseDump(LtWChar const *path, char const *reason)
{
    LtWChar message[kMaxDumpPathBytes + kLineBytes];
    (void)QzSysString::WideSprintf(message, sizeof(message) / sizeof(message[0]),
                                   u"QzSysError::ReadDump: %ls: %hs", path, reason);
    QzSysError::PostWideString(QzSysError::eWARNING, QzSysError::GetComponent(), message);
    return 0;
}

int QzSysError::ReadDump(LtWChar const *path, LogOutput print, void *data)
{
    if (path == nullptr)
        return RefuseDump(u"(null)", "no path");
    char system_path[kMaxDumpPathBytes];
    if (QzFramePath::ToSystemPath(path, system_path, sizeof(system_path)) <= 0)
        return RefuseDump(path, "path empty or too long");
    MappedFile file;
    if (file.Map(system_path) == 0)
        return RefuseDump(path, "cannot open and map the file");
    DumpDirectory directory;
    if (char const *reason = directory.Open(file.Data(), file.Size()))
        return RefuseDump(path, reason);

    Stream const system = directory.Find(Fmt::kSystemStream);
    if (system.bytes == nullptr)
        return RefuseDump(path, "no system information");
    if (system.size != Fmt::kSystemRecordBytes)
        return RefuseDump(path, "system information is not 56 bytes");
    PrintSystemLine(system.bytes, print, data);

    if (directory.Find(Fmt::kLogPartStream).bytes == nullptr)
        return RefuseDump(path, "the dump holds no log");
    for (int index = 0; index < Fmt::kLogPartCount; ++index) {
        Stream const part = directory.Find(Fmt::kLogPartStream + static_cast<LtNat32>(index));
        if (part.bytes != nullptr)
            PrintLogPart(index, part, print, data);
    }
    return 1;
}
