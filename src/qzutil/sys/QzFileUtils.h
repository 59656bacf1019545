// QzFileUtils.h: directory creation and permission checks that tell the
// user what went wrong.
#pragma once

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzExport.h"

// Class of statics. Unlike QzSysFile, each failure is posted (eERROR, no
// component, id -1) with a text that names the directory and asks the user
// to have the permissions fixed.
//
// Threads:  any thread.
// Lifetime: posts through QzError, so QzError::Initialise must have run; an
//           eERROR that no handler takes ends the process.
class QZUTIL_API QzFileUtils {
public:
    // Creates the directory and its missing parents. True if it exists
    // afterwards; else posts "Failed to create directory: ..." and is false.
    static bool CreateDirW(LtWChar const *path);
    // Tries to list the directory, then to create and remove a file in it.
    // True if both work; else posts "Unable to read directory: ..." or
    // "Unable to write directory: ..." for the first that failed, and is
    // false.
    static bool CheckPermissions(LtWChar const *path);
};
