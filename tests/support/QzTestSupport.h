// QzTestSupport.h: helpers shared by the test suites: text conversions for
// assertions, the log as a string, and a handler that records posts.
#pragma once

#include <string>
#include <vector>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/frame/QzSysError.h"

class QzComponent;

// The text as a std::u16string; null gives the empty string.
std::u16string ToU16(LtWChar const *text);

// UTF-16 to UTF-8 for readable failure messages (no validation).
std::string ToUtf8(std::u16string const &text);

// The whole log replay (head, gap marker, tail) as one string.
std::string ReplayLog();

// One recorded post.
struct QzRecordedPost {
    QzSysError::Severity severity;
    QzComponent *component;
    int id;
    void *data;
    std::u16string message;
};

// Records every post that reaches Handler, and answers with `answer`.
// Threads: one test thread.
class QzPostRecorder {
public:
    static std::vector<QzRecordedPost> &Posts();
    static int &Answer();
    static int Handler(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                       LtWChar const *message);
};

// Records the posts of one test into QzPostRecorder: clears what earlier
// tests left, answers 1 (taken), and takes every post that reaches the
// catch-all rung. A debug post with an id is offered only to a handler for
// that very component and id: the second form also takes those of
// `component` (initialised already) for the ids 0 to `last_id`.
// Make it after the components' Initialise and drop it before Terminate.
class QzPostRecording {
public:
    QzPostRecording();
    QzPostRecording(char const *component, int last_id);
    ~QzPostRecording();
    QzPostRecording(QzPostRecording const &) = delete;
    QzPostRecording &operator=(QzPostRecording const &) = delete;

    // Every recorded message, each followed by "|".
    static std::string Messages();
    // The last recorded message, or "<none>".
    static std::u16string LastMessage();

private:
    char const *m_component;  // null: the catch-all rung only
    int m_last_id;
};

// Makes the process dump no core for the death tests that follow.
void DisableCoreDumps();
