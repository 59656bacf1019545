// QzDemoCommand.cpp: "qz demo": a tour of the frame for a new user.

#include "QzCommands.h"
#include "QzDemo.h"

#include <cstdio>

#include "qzutil/frame/QzComponent.h"
#include "qzutil/frame/QzError.h"
#include "qzutil/frame/QzSysError.h"
#include "qzutil/memory/QzMemory.h"
#include "qzutil/text/QzString.h"
#include "qzutil/text/QzStringBuffer.h"
#include "qzutil/text/QzWideString.h"
#include "qzutil/text/QzWideStringBuffer.h"

// Prints wide text on standard output as UTF-8.
static void PrintWide(char const *label, LtWChar const *text)
{
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8String(text, &utf8);
    std::printf("%s%s\n", label, utf8.GetString());
}

static void ShowComponents()
{
    std::printf("Initialised components, in order of registration:\n");
    for (QzComponent *component = QzSysError::GetFirstComponent(); component != nullptr;
         component = component->GetNext()) {
        std::printf("  %-12s count %d\n", component->GetName(),
                    component->GetInitialisationCount());
    }
}

static void ShowText()
{
    std::printf("\nText:\n");
    QzStringBuffer narrow;
    narrow.Format("[%-6s] [%+.3e] [%#x] [%5.1f%%]", "left", 12345.678, 255u, 99.44);
    std::printf("  narrow Format:   %s (length %d, block of %d)\n", narrow.GetString(),
                narrow.GetLength(), narrow.GetAllocationSize());

    QzWideStringBuffer wide;
    wide.Format(u"%ls and %hs side by side, 0x%08X", u"UTF-16", "UTF-8", 0xC0FFEEu);
    PrintWide("  wide Format:     ", wide.GetString());

    // "Grüße 😀": 7 code points, 8 UTF-16 units (the emoji is a surrogate pair).
    QzWideStringBuffer decoded;
    int const good = QzString::UTF8ToWideString("Gr\xC3\xBC\xC3\x9F"
                                                "e \xF0\x9F\x98\x80",
                                                &decoded);
    std::printf("  UTF-8 to UTF-16: %d units, valid %d: ", decoded.GetLength(), good);
    PrintWide("", decoded.GetString());

    // A broken sequence becomes one U+FFFD, the byte that broke it included,
    // and the result says so.
    QzWideStringBuffer broken;
    int const bad = QzString::UTF8ToWideString("A\xC3(B", &broken);
    std::printf("  bad UTF-8 \"A\\xC3(B\": %d units, valid %d: ", broken.GetLength(), bad);
    PrintWide("", broken.GetString());
}

// The demo's own component, as any client of the library may declare one.
static QzComponent g_demo_component;

// Takes the demo's eERROR posts: the process survives them.
static int DemoHandler(QzSysError::Severity, QzComponent *, int id, void *, LtWChar const *message)
{
    QzStringBuffer utf8;
    QzWideString::ExtractUTF8String(message, &utf8);
    std::printf("  handler took eERROR id %d: \"%s\"\n", id, utf8.GetString());
    return 1;
}

static void ShowErrors()
{
    std::printf("\nErrors:\n");
    {
        QzErrorOverride take_errors(DemoHandler, QzSysError::eERROR, &g_demo_component, -1);
        QzError::Post(QzSysError::eERROR, &g_demo_component, 7, nullptr, "demo error %d of %s", 1,
                      "2");
    }
    // No handler for warnings: it goes to the log only, and the call returns.
    QzError::Post(QzSysError::eWARNING, &g_demo_component)
        << "demo warning " << 2 << ": only logged";
    std::printf("  a warning without a handler was logged and returned\n");
}

// The size classes in use, from the allocator's histogram walk, and its
// counters by path.
static void ShowAllocator()
{
    std::printf("\nAllocator (size classes in use):\n");
    std::printf("  %8s %8s %12s %12s %8s\n", "size", "blocks", "committed", "reserved", "region");
    unsigned classes = 0;
    for (unsigned size = QzMemory::GetHistogramFirstSize(); size != 0;
         size = QzMemory::GetHistogramNextSize(size)) {
        unsigned const blocks = QzMemory::GetHistogramNumBlocks(size);
        if (blocks == 0)
            continue;
        ++classes;
        std::printf(
            "  %8u %8u %10llu K %10llu K %6u K\n", size, blocks,
            static_cast<unsigned long long>(QzMemory::GetHistogramCommittedMemory(size) >> 10),
            static_cast<unsigned long long>(QzMemory::GetHistogramReservedMemory(size) >> 10),
            QzMemory::GetHistogramRegionSize(size) >> 10);
    }
    if (classes == 0)
        std::printf("  (none: every block comes from the heap, TY_FORCE_MALLOC is on)\n");
    std::printf("  bytes held: %llu in arenas, %llu from the heap, %llu in regions; largest "
                "arena block %u\n",
                static_cast<unsigned long long>(QzMemory::GetArenaMemoryAllocated()),
                static_cast<unsigned long long>(QzMemory::GetMallocMemoryAllocated()),
                static_cast<unsigned long long>(QzMemory::GetRegionMemoryAllocated()),
                QzMemory::GetHistogramMaxBlockSize());
}

static void PrintLogPart(char const *text, void *)
{
    std::fputs(text, stdout);
}

int RunDemoCommand(int argc, char **)
{
    if (argc > 1) {
        std::fputs("qz demo: takes no arguments (see qz demo --help)\n", stderr);
        return 2;
    }
    QzSysError::SetComponentConsoleEnable(1);  // "Init: "/"Term: " lines in the log
    QzError::Initialise();
    g_demo_component.Initialise("QzDemo", "qz demo command");
    ShowComponents();
    ShowText();
    ShowErrors();
    ShowAllocator();
    bool const streams_ok = ShowTypedStreams();
    QzError::Trace(1, "not shown: tracing is off\n");

    std::printf("\nThe log so far:\n");
    std::fflush(stdout);
    QzSysError::OutputLogBuffer(PrintLogPart, nullptr);
    g_demo_component.Terminate();
    QzError::Terminate();
    std::printf("\nAfter Terminate, %s components are initialised.\n",
                QzSysError::GetFirstComponent() == nullptr ? "no" : "some");
    return streams_ok ? 0 : 1;
}
