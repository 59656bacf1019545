// main.cpp: a first program against the installed qzutil. It starts the error
// component, formats narrow text, turns UTF-8 into UTF-16, catches a posted
// error with a handler of its own, and shuts down again. Exit code 0 means
// every step did what it should.
#include <cstdio>
#include <string>

#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideStringBuffer.h"

// What the handler saw. A handler's message points into a buffer the library
// reuses for the next post, so it must be copied, not kept.
static int g_posts_seen = 0;
static std::u16string g_last_message;

// Takes every eERROR that reaches the bottom of the handler ladder. Returning
// non-zero tells the library the message was handled; without a handler an
// eERROR post would end the process.
static int RecordError(QzSysError::Severity severity, QzComponent *component, int id, void *data,
                       LtWChar const *message)
{
    (void)severity;  // only registered for eERROR
    (void)component;
    (void)id;
    (void)data;
    ++g_posts_seen;
    g_last_message = message;
    return 1;
}

static int Fail(char const *what)
{
    std::fprintf(stderr, "consumer: %s\n", what);
    return 1;
}

// Everything between QzError::Initialise and QzError::Terminate, so the
// buffers below are released before the components they allocate from stop.
static int Run()
{
    // Narrow text is edited and formatted in a QzStringBuffer (printf rules).
    QzStringBuffer narrow;
    narrow.Format("%s has %d parts", "model", 3);
    if (std::string(narrow.GetString()) != "model has 3 parts")
        return Fail("Format gave the wrong text");

    // Wide text is UTF-16 in LtWChar units. "é" is two UTF-8 bytes but one
    // UTF-16 unit, so the wide text is one unit shorter than the narrow one.
    QzWideStringBuffer wide;
    if (!QzString::UTF8ToWideString("caf\xC3\xA9", &wide))
        return Fail("UTF8ToWideString refused valid UTF-8");
    if (std::u16string(wide.GetString()) != u"caf\u00E9")
        return Fail("UTF8ToWideString gave the wrong text");

    // Errors are posted, not thrown. A handler keyed (eERROR, no component,
    // id -1) sees every eERROR that no more specific handler took. The null
    // component is named because SetHandler also takes a component's name.
    QzComponent *const any_component = nullptr;
    int const any_id = -1;
    QzSysError::SetHandler(RecordError, QzSysError::eERROR, any_component, any_id);
    QzError::Post(QzSysError::eERROR, nullptr, "the answer is %d", 42);
    QzSysError::RemoveHandler(QzSysError::eERROR, any_component, any_id);

    // With the handler in place the post came back to us, so the program
    // goes on; library code does the same and returns its failure result.
    if (g_posts_seen != 1 || g_last_message != u"the answer is 42")
        return Fail("the handler did not receive the post");

    std::printf("%s; %d UTF-16 units; handler saw one error\n", narrow.GetString(),
                wide.GetLength());
    return 0;
}

int main()
{
    // Components are counted: QzError::Initialise starts QzSysError,
    // QzMemory and QzString under it, and the matching Terminate stops them.
    QzError::Initialise();
    int const result = Run();
    QzError::Terminate();
    return result;
}
