// QzComponentInfo.h: the identification text that each of the library's
// components logs with its "Init: " line. Internal: never installed.
#pragma once

#ifndef QZUTIL_VERSION_TEXT
#error "QZUTIL_VERSION_TEXT comes from the build"
#endif

// "@(#)$Id: <source file> <project version> $", fixed at compile time.
#define QZ_COMPONENT_INFO "@(#)$Id: " __FILE_NAME__ " " QZUTIL_VERSION_TEXT " $"
