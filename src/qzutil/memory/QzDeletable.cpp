// QzDeletable.cpp: the out-of-line destructor that anchors the vtable in the
// library.

#include "qzutil/memory/QzDeletable.h"

QzDeletable::~QzDeletable() = default;
