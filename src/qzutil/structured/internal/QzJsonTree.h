// QzJsonTree.h: the bridge between the opaque QzJsonNode of the public
// headers and cJSON's nodes, and the guarded parse and print that every JSON
// text of the library goes through. Internal: never installed.
#pragma once

#include <cjson/cJSON.h>

class QzStringBuffer;
struct QzJsonNode;

// A QzJsonNode is never defined: its pointers are cJSON pointers under
// another name, so that public headers need no cJSON header.
inline cJSON *QzJsonAsCJson(QzJsonNode *node)
{
    return reinterpret_cast<cJSON *>(node);
}

inline QzJsonNode *QzJsonAsNode(cJSON *node)
{
    return reinterpret_cast<QzJsonNode *>(node);
}

// Parses `text` in the "C" numeric locale. Returns the tree, which the caller
// frees with cJSON_Delete, or null if the text is null, not JSON, or has
// anything but blanks after the value.
[[nodiscard]] cJSON *QzJsonParseTree(char const *text);

// Prints the tree into `out` in the "C" numeric locale, every number from its
// double by "%.17g" (NaN and infinities as null). Number nodes of the tree
// become raw text nodes on the way, which is why the tree is not const.
// Returns true, or false with `out` empty if cJSON cannot print it.
[[nodiscard]] bool QzJsonPrintTree(cJSON *root, bool formatted, QzStringBuffer *out);
