// QzJsonStream.cpp: the JSON component, the stream state and its cursor, and
// the guarded parse and print of JSON text over cJSON.
#include "qzutil/structured/QzJsonStream.h"

#include <cmath>
#include <cstring>

#include <cjson/cJSON.h>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/internal/QzComponentInfo.h"
#include "qzutil/structured/internal/QzJsonTree.h"
#include "qzutil/sys/QzSysString.h"
#include "qzutil/sys/internal/QzSysCNumericScope.h"
#include "qzutil/text/QzStringBuffer.h"

static QzComponent g_json_component;

void QzJsonStream::Initialise()
{
    if (!g_json_component.Initialise("QzJsonStream", QZ_COMPONENT_INFO))
        return;
    QzError::Initialise();
    QzString::Initialise();
}

void QzJsonStream::Terminate()
{
    if (!g_json_component.Terminate())
        return;
    QzString::Terminate();
    QzError::Terminate();
}

bool QzJsonStream::IsInitialised()
{
    return g_json_component.IsInitialised() != 0;
}

QzComponent *QzJsonStream::GetComponent()
{
    return &g_json_component;
}

bool QzJsonStream::CopyJson(char const *text, bool formatted, QzStringBuffer *out)
{
    cJSON *root = QzJsonParseTree(text);
    if (root == nullptr) {
        out->SetEmptyString();
        return false;
    }
    bool is_printed = QzJsonPrintTree(root, formatted, out);
    cJSON_Delete(root);
    return is_printed;
}

// --- Parse and print ---

cJSON *QzJsonParseTree(char const *text)
{
    if (text == nullptr)
        return nullptr;
    QzSysCNumericScope c_numbers;
    // Only blanks may follow the value: text after a document is damage,
    // not something to ignore.
    return cJSON_ParseWithOpts(text, nullptr, /*require_null_terminated=*/1);
}

// Large enough for "%.17g" of any double: sign, 17 digits, point, "e-308".
static constexpr int kNumberTextBytes = 32;

// Turns one number node into a raw node holding its "%.17g" text. cJSON
// frees the text with the node, through its own allocator. Returns false if
// that allocator fails; the node is then left a number.
static bool MakeRawNumber(cJSON *node)
{
    char text[kNumberTextBytes];
    if (std::isfinite(node->valuedouble))
        (void)QzSysString::Sprintf(text, sizeof text, "%.17g", node->valuedouble);  // fits
    else
        std::memcpy(text, "null", sizeof "null");  // what cJSON prints for them
    std::size_t bytes = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(cJSON_malloc(bytes));
    if (copy == nullptr)
        return false;
    std::memcpy(copy, text, bytes);
    node->type = cJSON_Raw | (node->type & ~0xFF);  // keeps the ownership flags
    node->valuestring = copy;
    return true;
}

// Converts every number under `node`. cJSON's parser stops at its nesting
// limit, and the writers nest only as deep as their callers do, so the
// recursion is bounded by the document's depth.
static bool MakeRawNumbers(cJSON *node)
{
    for (; node != nullptr; node = node->next) {
        if (cJSON_IsNumber(node) && !MakeRawNumber(node))
            return false;
        if (node->child != nullptr && !MakeRawNumbers(node->child))
            return false;
    }
    return true;
}

bool QzJsonPrintTree(cJSON *root, bool formatted, QzStringBuffer *out)
{
    out->SetEmptyString();
    QzSysCNumericScope c_numbers;
    if (root == nullptr)
        return false;
    // The root's siblings, if any, are not part of this document.
    cJSON *const next = root->next;
    root->next = nullptr;
    bool is_converted = MakeRawNumbers(root);
    root->next = next;
    if (!is_converted)
        return false;
    char *text = formatted ? cJSON_Print(root) : cJSON_PrintUnformatted(root);
    if (text == nullptr)
        return false;
    out->SetString(text);
    cJSON_free(text);
    return true;
}

// --- QzJsonItem ---

QzJsonItem::QzJsonItem() : m_node(nullptr), m_next_element(nullptr), m_array_index(0)
{}

QzJsonItem::QzJsonItem(QzJsonNode *node) : m_node(node), m_next_element(nullptr), m_array_index(0)
{
    cJSON *container = QzJsonAsCJson(node);
    if (container != nullptr && cJSON_IsArray(container))
        m_next_element = QzJsonAsNode(container->child);
}

void QzJsonItem::IncrementArrayIndex()
{
    ++m_array_index;
    if (m_next_element != nullptr)
        m_next_element = QzJsonAsNode(QzJsonAsCJson(m_next_element)->next);
}

void QzJsonItem::DecrementArrayIndex()
{
    if (m_array_index == 0)
        return;
    --m_array_index;
    cJSON *container = QzJsonAsCJson(m_node);
    m_next_element = container != nullptr && cJSON_IsArray(container)
                         ? QzJsonAsNode(cJSON_GetArrayItem(container, m_array_index))
                         : nullptr;
}

// --- QzJsonStreamData ---

QzJsonStreamData::QzJsonStreamData()
    : m_root(nullptr), m_property_node(nullptr), m_has_property_name(false),
      m_active_object_count(0), m_active_array_count(0), m_is_error(false)
{}

QzJsonStreamData::~QzJsonStreamData()
{
    Clear();
}

void QzJsonStreamData::Push(QzJsonNode *node)
{
    m_stack.emplace_back(node);
}

void QzJsonStreamData::Pop()
{
    if (!m_stack.empty())
        m_stack.pop_back();
}

QzJsonItem *QzJsonStreamData::CurrentItem()
{
    return m_stack.empty() ? nullptr : &m_stack.back();
}

QzJsonNode *QzJsonStreamData::CurrentcJSON() const
{
    return m_stack.empty() ? nullptr : m_stack.back().GetNode();
}

int QzJsonStreamData::CurrentArrayIndex() const
{
    return m_stack.empty() ? 0 : m_stack.back().GetArrayIndex();
}

QzJsonNode *QzJsonStreamData::CurrentArrayElement() const
{
    return m_stack.empty() ? nullptr : m_stack.back().GetNextElement();
}

void QzJsonStreamData::IncrementCurrentArrayIndex()
{
    if (!m_stack.empty())
        m_stack.back().IncrementArrayIndex();
}

void QzJsonStreamData::DecrementCurrentArrayIndex()
{
    if (!m_stack.empty())
        m_stack.back().DecrementArrayIndex();
}

void QzJsonStreamData::SetPropertyName(char const *name, QzJsonNode *node)
{
    if (name == nullptr) {
        ClearPropertyName();
        return;
    }
    m_property_name.SetString(name);
    m_property_node = node;
    m_has_property_name = true;
}

char const *QzJsonStreamData::GetPropertyName() const
{
    return m_has_property_name ? m_property_name.GetString() : nullptr;
}

void QzJsonStreamData::ClearPropertyName()
{
    m_property_node = nullptr;
    m_has_property_name = false;
}

void QzJsonStreamData::Clear()
{
    m_stack.clear();
    SetRoot(nullptr);
    ClearPropertyName();
    m_active_object_count = 0;
    m_active_array_count = 0;
}

void QzJsonStreamData::SetRoot(QzJsonNode *root)
{
    if (m_root != nullptr && m_root != root)
        cJSON_Delete(QzJsonAsCJson(m_root));
    m_root = root;
}
