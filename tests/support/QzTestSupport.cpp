// QzTestSupport.cpp: helpers shared by the test suites.

#include "support/QzTestSupport.h"

#include <sys/resource.h>

void DisableCoreDumps()
{
    struct rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

std::u16string ToU16(LtWChar const *text)
{
    return text != nullptr ? std::u16string(text) : std::u16string();
}

std::string ToUtf8(std::u16string const &text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char32_t c = text[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
            text[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[i + 1]) - 0xDC00);
            ++i;
        }
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

static void AppendToString(char const *text, void *data)
{
    static_cast<std::string *>(data)->append(text);
}

std::string ReplayLog()
{
    std::string log;
    QzSysError::OutputLogBuffer(AppendToString, &log);
    return log;
}

std::vector<QzRecordedPost> &QzPostRecorder::Posts()
{
    static std::vector<QzRecordedPost> posts;
    return posts;
}

int &QzPostRecorder::Answer()
{
    static int answer = 1;
    return answer;
}

int QzPostRecorder::Handler(QzSysError::Severity severity, QzComponent *component, int id,
                            void *data, LtWChar const *message)
{
    Posts().push_back({severity, component, id, data, ToU16(message)});
    return Answer();
}

QzPostRecording::QzPostRecording() : QzPostRecording(nullptr, -1)
{}

QzPostRecording::QzPostRecording(char const *component, int last_id)
    : m_component(component), m_last_id(last_id)
{
    QzPostRecorder::Posts().clear();
    QzPostRecorder::Answer() = 1;
    QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY,
                           static_cast<QzComponent *>(nullptr), -1);
    for (int id = 0; m_component != nullptr && id <= m_last_id; ++id)
        QzSysError::SetHandler(QzPostRecorder::Handler, QzSysError::eANY, m_component, id);
}

QzPostRecording::~QzPostRecording()
{
    for (int id = 0; m_component != nullptr && id <= m_last_id; ++id)
        QzSysError::RemoveHandler(QzSysError::eANY, m_component, id);
    QzSysError::RemoveHandler(QzSysError::eANY, static_cast<QzComponent *>(nullptr), -1);
}

std::string QzPostRecording::Messages()
{
    std::string all;
    for (QzRecordedPost const &post : QzPostRecorder::Posts())
        all += ToUtf8(post.message) + "|";
    return all;
}

std::u16string QzPostRecording::LastMessage()
{
    auto const &posts = QzPostRecorder::Posts();
    return posts.empty() ? u"<none>" : posts.back().message;
}
