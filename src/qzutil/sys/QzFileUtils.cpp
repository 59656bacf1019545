// QzFileUtils.cpp: directory creation and permission trials with the user's
// messages.

#include "qzutil/sys/QzFileUtils.h"

#include "qzutil/frame/QzError.h"
#include "qzutil/sys/QzSysFile.h"
#include "qzutil/text/QzWideStringBuffer.h"

// The default texts of the messages "qzfileutils_failed_to_create_dir",
// "qzfileutils_failed_to_read_dir" and "qzfileutils_failed_to_write_dir".
// The ids are names of resources, not numbers, so the posts carry id -1.
static constexpr LtWChar kFailedToCreateDir[] =
    u"Failed to create directory: %s.  Please ask your administrator to ensure you have full "
    u"permissions to this folder.";
static constexpr LtWChar kFailedToReadDir[] =
    u"Unable to read directory: %s.  Please ask your administrator to ensure you have full "
    u"permissions to this folder.";
static constexpr LtWChar kFailedToWriteDir[] =
    u"Unable to write directory: %s.  Please ask your administrator to ensure you have full "
    u"permissions to this folder.";

static bool PostFailure(LtWChar const *format, LtWChar const *path)
{
    QzError::Post(QzSysError::eERROR, nullptr, -1, nullptr, format, path);
    return false;
}

bool QzFileUtils::CreateDirW(LtWChar const *path)
{
    return QzSysFile::CreateDirW(path) || PostFailure(kFailedToCreateDir, path);
}

// Reading is the listing of the directory; writing is a new file in it,
// removed again at once.
bool QzFileUtils::CheckPermissions(LtWChar const *path)
{
    QzSysDirHandle *listing = QzSysFile::OpenDirW(path);
    if (listing == nullptr)
        return PostFailure(kFailedToReadDir, path);
    QzSysFile::CloseDir(listing);
    QzWideStringBuffer trial;
    if (!QzSysFile::MakeTempFileW(path, u"qzperm", nullptr, 0, &trial))
        return PostFailure(kFailedToWriteDir, path);
    return QzSysFile::UnlinkW(trial.GetString(), true) || PostFailure(kFailedToWriteDir, path);
}
