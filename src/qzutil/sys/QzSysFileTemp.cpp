// QzSysFileTemp.cpp: the temporary directory (with its override) and the
// temporary names and files of QzSysFile.

#include <atomic>

#include "qzutil/sys/QzSysFile.h"
#include "qzutil/sys/internal/QzSysProcess.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

// Set at start-up only (see the class comment); owned, from new[]. Never
// freed at exit: the pointer keeps it reachable.
static LtWChar *g_override_temp_dir;

// Calls so far: two names asked for within one tick still differ.
static std::atomic<LtNat32> g_temp_name_calls;

static constexpr int kMaxStemUnits = 30;
static constexpr int kMaxTempNameTries = 100;

bool QzSysFile::GetOverrideTempDir(QzWideStringBuffer *out)
{
    if (g_override_temp_dir == nullptr) {
        out->SetEmptyString();
        return false;
    }
    out->SetString(g_override_temp_dir);
    return true;
}

bool QzSysFile::SetOverrideTempDir(LtWChar const *dir, bool create)
{
    LtWChar *replacement = nullptr;
    if (dir != nullptr && *dir != 0) {
        if (create && !CreateDirW(dir))
            return false;
        QzWideStringBuffer normal;
        NormalizePathW(dir, &normal);
        replacement = new LtWChar[static_cast<std::size_t>(normal.GetLength()) + 1];
        for (int i = 0; i <= normal.GetLength(); ++i)
            replacement[i] = normal.GetString()[i];
    }
    delete[] g_override_temp_dir;
    g_override_temp_dir = replacement;
    return true;
}

bool QzSysFile::GetTempDir(QzWideStringBuffer *out)
{
    if (GetOverrideTempDir(out))
        return true;
    QzWideStringBuffer value;
    int prefix = 0;
    if (GetEnvironmentVariableW(u"TMPDIR", &value) && IsAbsoluteW(value.GetString(), &prefix) &&
        prefix == 1 && IsDirectoryW(value.GetString())) {
        NormalizePathW(value.GetString(), out);
        return true;
    }
    out->SetString(u"/tmp");
    return true;
}

// The generator of the names' numbers: each step gives 0 to 0x7FFF, so that
// "%4x" gives names of the usual shape (blank-padded).
static int NextTempNumber(LtNat32 *state)
{
    *state = *state * 214013u + 2531011u;
    return static_cast<int>((*state >> 16) & 0x7FFF);
}

// Tries names until `claim` takes one (answers true) or the tries run out.
template <typename Claim>
static bool FindTempName(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext,
                         QzWideStringBuffer *out, Claim claim)
{
    QzWideStringBuffer directory;
    if (dir != nullptr && *dir != 0)
        directory.SetString(dir);
    else
        QzSysFile::GetTempDir(&directory);
    QzWideStringBuffer stem_text(stem != nullptr ? stem : u"file");
    if (stem_text.GetLength() > kMaxStemUnits)
        stem_text.ReplaceSubString(kMaxStemUnits, stem_text.GetLength(), nullptr);
    (void)QzSysFile::MakeValidFilenameW(stem_text.GetString(), &stem_text);  // changes are fine
    LtWChar const *extension = ext != nullptr && *ext == u'.' ? ext + 1 : ext;
    bool has_extension = extension != nullptr && *extension != 0;

    LtNat32 state = static_cast<LtNat32>(QzSysProcess::GetTickCount()) +
                    g_temp_name_calls.fetch_add(1) * 0x9E3779B9u;
    int pid = QzSysProcess::GetProcessId();
    QzWideStringBuffer name, path;
    for (int attempt = 0; attempt < kMaxTempNameTries; ++attempt) {
        int first = NextTempNumber(&state);
        int second = NextTempNumber(&state);
        if (has_extension)
            name.Format(u"%s_%d_%4x%4x.%s", stem_text.GetString(), pid, first, second, extension);
        else
            name.Format(u"%s_%d_%4x%4x", stem_text.GetString(), pid, first, second);
        QzSysFile::JoinPathsW(directory.GetString(), name.GetString(), &path);
        if (claim(path.GetString())) {
            out->SetString(path);
            return true;
        }
    }
    out->SetEmptyString();
    return false;
}

bool QzSysFile::MakeTempFileNameW(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext,
                                  QzWideStringBuffer *out)
{
    return FindTempName(dir, stem, ext, out, [](LtWChar const *path) { return !ExistsW(path); });
}

bool QzSysFile::MakeTempFileNameW(QzWideStringBuffer *out)
{
    return MakeTempFileNameW(nullptr, nullptr, nullptr, out);
}

bool QzSysFile::MakeTempFileW(LtWChar const *dir, LtWChar const *stem, LtWChar const *ext,
                              LtNat64 size, QzWideStringBuffer *out)
{
    return FindTempName(dir, stem, ext, out, [size](LtWChar const *path) {
        // Exclusive creation: a name that appeared since it was chosen is
        // another's, and the next one is tried.
        void *file = OpenFile(path, eACCESS_WRITE, eSHARE_NONE, eCREATE_NEW, eATTR_NONE);
        if (file == nullptr)
            return false;
        bool made = CloseFile(file) && (size == 0 || CreateFileW(path, size));
        if (!made)
            (void)UnlinkW(path, true);  // leave nothing half made; the next name is tried
        return made;
    });
}

bool QzSysFile::MakeTempFileW(LtNat64 size, QzWideStringBuffer *out)
{
    return MakeTempFileW(nullptr, nullptr, nullptr, size, out);
}
