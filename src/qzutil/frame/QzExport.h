// QzExport.h: the export macro of libqzutil.so. The library is built with
// hidden visibility; every public class carries QZUTIL_API so that its
// members, vtable and type information are visible to clients (hidden type
// information would break catch and dynamic_cast across the boundary).
#pragma once

#define QZUTIL_API __attribute__((visibility("default")))
