// QzJsonStream.h: the state shared by the JSON write and read streams (the
// tree, the cursor stack, the pending property name, the error flag) and the
// JSON component with its reformatting helper.
#pragma once

#include <vector>

#include "qzutil/frame/QzExport.h"
#include "qzutil/memory/QzDeletable.h"
#include "qzutil/text/QzStringBuffer.h"

class QzComponent;

// A node of a JSON tree. Opaque: only the library's JSON code looks inside.
struct QzJsonNode;

// A position in the tree: a container node and, for an array, the index of
// the element that the next read takes, with that element itself so that
// stepping through an array costs no walk from its start.
//
// Invariant: for an array, GetNextElement() is element GetArrayIndex() of
//            the node, or null once the index has passed the last element.
class QZUTIL_API QzJsonItem {
public:
    QzJsonItem();
    explicit QzJsonItem(QzJsonNode *node);

    QzJsonNode *GetNode() const { return m_node; }
    int GetArrayIndex() const { return m_array_index; }
    QzJsonNode *GetNextElement() const { return m_next_element; }
    // Moves to the following element; past the end the element stays null.
    void IncrementArrayIndex();
    // Moves back one element (walks from the first: rare, for restoring).
    void DecrementArrayIndex();

    // Two positions are equal when they are at the same node.
    bool operator==(QzJsonItem const &other) const { return m_node == other.m_node; }
    bool operator!=(QzJsonItem const &other) const { return m_node != other.m_node; }

private:
    QzJsonNode *m_node;          // borrowed from the tree of the stream data
    QzJsonNode *m_next_element;  // borrowed; null for an object or past the end
    int m_array_index;           // elements already taken from an array
};

// The state of one JSON stream: the tree being built or read, the stack of
// open containers, the property name waiting for its value, the counts of
// open objects and arrays, and the sticky error flag.
//
// Ownership: owns the tree root (freed by Clear and the destructor); the
//            stack points into that tree. Neither copyable nor movable.
// Threads:   one thread at a time.
// Invariant: every stack entry is a node of the tree under the root.
class QZUTIL_API QzJsonStreamData {
public:
    QZ_DECLARE_ALLOCATORS()

    QzJsonStreamData();
    ~QzJsonStreamData();
    QzJsonStreamData(QzJsonStreamData const &) = delete;
    QzJsonStreamData &operator=(QzJsonStreamData const &) = delete;

    // The stack of open containers. Pop and the Current... calls do nothing
    // (or give null, 0) on an empty stack.
    void Push(QzJsonNode *node);
    void Pop();
    QzJsonNode *CurrentcJSON() const;
    int CurrentArrayIndex() const;
    QzJsonNode *CurrentArrayElement() const;
    void IncrementCurrentArrayIndex();
    void DecrementCurrentArrayIndex();
    int StackSize() const { return static_cast<int>(m_stack.size()); }
    // The top entry, for saving and restoring a position; null when empty.
    QzJsonItem *CurrentItem();

    // Frees the tree and drops the stack, the property name and the counts.
    // The error flag is left as it is.
    void Clear();

    QzJsonNode *GetRoot() const { return m_root; }
    // Takes ownership of `root`, freeing any previous root.
    void SetRoot(QzJsonNode *root);

    // The name waiting for its value (copied; null clears it). A reader
    // also gives the node that the name selects, so that the value read
    // need not search the object again; GetPropertyNode is null otherwise.
    void SetPropertyName(char const *name) { SetPropertyName(name, nullptr); }
    void SetPropertyName(char const *name, QzJsonNode *node);
    char const *GetPropertyName() const;
    QzJsonNode *GetPropertyNode() const { return m_property_node; }
    bool IsPropertyName() const { return m_has_property_name; }
    void ClearPropertyName();

    bool IsError() const { return m_is_error; }
    void SetError(bool is_error) { m_is_error = is_error; }

    void IncrementActiveArrayCount() { ++m_active_array_count; }
    void DecrementActiveArrayCount() { --m_active_array_count; }
    void IncrementActiveObjectCount() { ++m_active_object_count; }
    void DecrementActiveObjectCount() { --m_active_object_count; }
    int GetActiveArrayCount() const { return m_active_array_count; }
    int GetActiveObjectCount() const { return m_active_object_count; }

private:
    QzJsonNode *m_root;               // owned; null before a document
    std::vector<QzJsonItem> m_stack;  // open containers, innermost last
    QzStringBuffer m_property_name;   // its block is kept from name to name
    QzJsonNode *m_property_node;      // borrowed from the tree; may be null
    bool m_has_property_name;         // whether m_property_name waits for a value
    int m_active_object_count;        // objects begun and not yet ended
    int m_active_array_count;         // arrays begun and not yet ended
    bool m_is_error;
};

// Base of the JSON streams: holds the stream data and answers for its
// error flag and current container.
//
// Ownership: the data is borrowed and must outlive the stream.
class QZUTIL_API QzJsonStreamDataContainer {
public:
    explicit QzJsonStreamDataContainer(QzJsonStreamData *data) : m_data(data) {}

    // Whether a container is open, and the innermost one (null if none).
    bool HaveCurrentJSON() const { return m_data->StackSize() > 0; }
    QzJsonNode *GetCurrentJSON() const { return m_data->CurrentcJSON(); }

    // The sticky error: once set, every later call does nothing.
    bool IsError() const { return m_data->IsError(); }
    void SetError(bool is_error) { m_data->SetError(is_error); }

protected:
    QzJsonStreamData *m_data;  // borrowed
};

// The JSON component, and reformatting of a JSON text.
//
// Lifetime: a counted component over QzError and QzString; Initialise before
//           using any JSON stream.
// Threads:  parsing and printing switch the calling thread (only) to the "C"
//           numeric locale for their duration, so numbers always use ".".
class QZUTIL_API QzJsonStream {
public:
    static void Initialise();
    static void Terminate();
    static bool IsInitialised();
    static QzComponent *GetComponent();

    // Parses `text` and prints it again into `out`, indented when
    // `formatted`, every number with 17 significant digits ("%.17g") so that
    // it reads back as the same double. Any JSON value is accepted at the top. False,
    // with `out` empty, if the text does not parse.
    static bool CopyJson(char const *text, bool formatted, QzStringBuffer *out);
};
