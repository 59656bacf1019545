// QzSysStringPosix.cpp: QzSysString's error messages, through the
// thread-safe strerror_r (the GNU form, which g++ selects by defining
// _GNU_SOURCE).
#include "qzutil/sys/QzSysString.h"

#include <string.h>

char const *QzSysString::Strerror(int error_number, char *buffer, std::size_t size)
{
    if (buffer == nullptr || size == 0)
        return "";
    // The GNU form returns either a static message, leaving buffer alone, or
    // buffer itself with an "Unknown error" text.
    char const *message = strerror_r(error_number, buffer, size);
    if (message != buffer)
        Strcpy(buffer, size, message);  // a cut message is still the best answer
    return buffer;
}
