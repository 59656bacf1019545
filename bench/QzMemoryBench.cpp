// QzMemoryBench.cpp: times QzMemory beside glibc malloc, mimalloc and jemalloc
// on the same small-block workloads in one run, measures how densely each one
// packs millions of small objects, and prints ratios against our targets.
//
// Allocators and how they share one process
// - QzMemory: Alloc(size, 8) and the sized Dealloc(block, size, 8); alignment
//   8 because the objects it is tuned for hold pointers.
// - glibc: plain malloc and free, bound through the global symbol scope.
// - mimalloc: mi_malloc, mi_free, mi_usable_size of libmimalloc.so.2.
// - jemalloc: mallocx, sized sdallocx, sallocx of libjemalloc.so.2.
// Debian's builds of both peers export malloc and free themselves (mimalloc's
// malloc is the same function as its mi_malloc), so linking either one would
// replace glibc's malloc for the whole process, QzMemory's heap path included.
// They are therefore loaded at run time with dlopen(RTLD_LOCAL), which keeps
// their symbols out of the global scope, and reached through dlsym on their
// handles. Before measuring, the program checks that the global malloc is
// libc.so.6's own (dlsym of the global scope equals dlsym of libc's handle,
// and differs from each peer's malloc) and that it behaves as glibc's does
// (malloc_usable_size of a 16-byte block is 24: a 32-byte chunk less its size
// word), and stops if not. jemalloc keeps its thread state in initial-exec TLS,
// which dlopen can place only if glibc keeps room for it in the static TLS
// block; the program therefore re-executes itself once with the tunable
// glibc.rtld.optional_static_tls raised (GLIBC_TUNABLES), unless it is set.
//
// Time
// - A workload is a script of 65,536 steps, made once from a fixed seed and
//   shared by all allocators: each step names one of 1,024 live blocks and a
//   new size. A pair is: release that block (with its size, where the API
//   takes one), allocate the new size, write its first byte. The slots are
//   chosen at random so reuse is not a plain LIFO. Sizes: uniform 8..512, or
//   fixed 16, 64 or 256 bytes.
// - Each thread fills its own 1,024 blocks, waits at a start gate, runs
//   kPairsPerThread pairs, and notes its end time; the figure is wall time
//   from opening the gate to the last thread's end, divided by the pairs of
//   all threads (so perfect scaling halves it at two threads). One-thread runs
//   use the same code with one worker.
// - Per workload and thread count: one warm-up run per allocator, then
//   kTimedRuns rounds in which every allocator runs once in turn (so a noisy
//   moment hits all of them alike); the median is reported.
//
// Resident memory
// - Per allocator and object size, a fresh child is forked before any timing
//   has run (so no allocator sees pages freed by an earlier workload). The
//   child touches a pointer array for kResidentObjects blocks, reads RssAnon
//   from /proc/self/status, allocates the blocks and fills each, reads RssAnon
//   again, and sends the growth to the parent. The table gives growth per
//   requested byte: 1.00 would be a block with no waste and no metadata.
//
// Targets: one-thread time at most 1.0x glibc's and 1.5x mimalloc's on every
// workload; resident bytes per requested byte at most 1.01 for both sizes,
// and below every peer. Build with the "bench" preset; not part of CI.

#include "qzutil/memory/QzMemory.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qzutil/frame/LtTypes.h"

using Clock = std::chrono::steady_clock;

static constexpr unsigned kAlignment = 8;            // QzMemory alignment in bytes
static constexpr unsigned kLiveBlocks = 1024;        // per thread; a power of two
static constexpr unsigned kScriptLength = 1u << 16;  // steps; a power of two
static constexpr LtNat64 kPairsPerThread = 1u << 21;
static constexpr int kTimedRuns = 7;
static constexpr unsigned kResidentObjects = 10000000;
static constexpr unsigned kMinRandomSize = 8;
static constexpr unsigned kMaxRandomSize = 512;
static constexpr LtNat32 kScriptSeed = 20240611;  // any fixed value: same script every run

// Targets of QzMemory against the peers.
static constexpr double kMaxRatioToGlibc = 1.0;
static constexpr double kMaxRatioToMimalloc = 1.5;
static constexpr double kMaxResidentPerRequested = 1.01;

// glibc's malloc_usable_size of a 16-byte request: a 32-byte chunk less the
// 8-byte size word (malloc/malloc.c, request2size on 64-bit targets).
static constexpr std::size_t kGlibcUsableOf16 = 24;

static char const kMimallocSoname[] = "libmimalloc.so.2";
static char const kJemallocSoname[] = "libjemalloc.so.2";
static char const kStaticTlsTunable[] = "glibc.rtld.optional_static_tls";
static char const kStaticTlsSetting[] = "glibc.rtld.optional_static_tls=8192";  // jemalloc: 2.6 KB

// The peers' entry points, from dlsym; null while a peer is not loaded.
struct MimallocEntries {
    void *(*allocate)(std::size_t size);
    void (*release)(void *block);
    std::size_t (*usable_size)(void const *block);
};

struct JemallocEntries {
    void *(*allocate)(std::size_t size, int flags);
    void (*release)(void *block, std::size_t size, int flags);
    std::size_t (*usable_size)(void const *block, int flags);
};

static MimallocEntries g_mimalloc;
static JemallocEntries g_jemalloc;

[[noreturn]] static void Die(char const *message)
{
    std::fprintf(stderr, "qzutil_memory_bench: %s\n", message);
    std::exit(2);
}

// Re-executes this program with room for jemalloc's TLS in the static TLS
// block; returns only if the setting is already there or the exec failed.
static void ReexecWithStaticTlsRoom(char **argv)
{
    char const *tunables = std::getenv("GLIBC_TUNABLES");
    if (tunables != nullptr && std::strstr(tunables, kStaticTlsTunable) != nullptr)
        return;
    std::string setting = kStaticTlsSetting;
    if (tunables != nullptr && tunables[0] != '\0')
        setting = std::string(tunables) + ":" + setting;
    if (setenv("GLIBC_TUNABLES", setting.c_str(), 1) != 0)
        return;
    execv("/proc/self/exe", argv);
    std::fprintf(stderr, "qzutil_memory_bench: re-exec failed; jemalloc may not load\n");
}

// Stores the address of `symbol` in `library` into *function; false if absent.
template <class Function>
static bool LookUp(void *library, char const *symbol, Function *function)
{
    static_assert(sizeof(Function) == sizeof(void *), "function pointers are addresses");
    void *address = dlsym(library, symbol);
    if (address == nullptr)
        return false;
    std::memcpy(function, &address, sizeof address);
    return true;
}

// Loads one peer privately; null (after saying why) if it cannot be used.
static void *LoadPeer(char const *soname)
{
    void *library = dlopen(soname, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        std::printf("  %s: not loaded (%s); its columns stay empty\n", soname, dlerror());
    return library;
}

static void LoadMimalloc()
{
    void *library = LoadPeer(kMimallocSoname);
    if (library == nullptr)
        return;
    MimallocEntries entries{};
    if (!LookUp(library, "mi_malloc", &entries.allocate) ||
        !LookUp(library, "mi_free", &entries.release) ||
        !LookUp(library, "mi_usable_size", &entries.usable_size)) {
        std::printf("  %s: mi_malloc, mi_free or mi_usable_size missing\n", kMimallocSoname);
        return;
    }
    void *block = entries.allocate(16);
    std::printf("  %s: private; its malloc %s its mi_malloc; mi_usable_size(16) = %zu\n",
                kMimallocSoname,
                dlsym(library, "malloc") == dlsym(library, "mi_malloc") ? "is" : "is not",
                entries.usable_size(block));
    entries.release(block);
    g_mimalloc = entries;
}

static void LoadJemalloc()
{
    void *library = LoadPeer(kJemallocSoname);
    if (library == nullptr)
        return;
    JemallocEntries entries{};
    if (!LookUp(library, "mallocx", &entries.allocate) ||
        !LookUp(library, "sdallocx", &entries.release) ||
        !LookUp(library, "sallocx", &entries.usable_size)) {
        std::printf("  %s: mallocx, sdallocx or sallocx missing\n", kJemallocSoname);
        return;
    }
    void *block = entries.allocate(16, 0);
    std::printf("  %s: private; exports malloc: %s; sallocx(16) = %zu\n", kJemallocSoname,
                dlsym(library, "malloc") != nullptr ? "yes" : "no", entries.usable_size(block, 0));
    entries.release(block, 16, 0);
    g_jemalloc = entries;
}

// True if the global malloc is libc.so.6's; prints the evidence, labelled
// with `when` (before or after the peers were loaded).
static bool IsGlobalMallocGlibc(char const *when)
{
    void *libc = dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD);
    if (libc == nullptr)
        return false;
    void *global_malloc = dlsym(RTLD_DEFAULT, "malloc");
    bool const is_libc_symbol = global_malloc != nullptr && global_malloc == dlsym(libc, "malloc");
    void *block = std::malloc(16);
    std::size_t const usable = malloc_usable_size(block);
    std::free(block);
    std::printf("  %s: global malloc is libc.so.6's: %s; malloc_usable_size(malloc(16)) = "
                "%zu (glibc: %zu)\n",
                when, is_libc_symbol ? "yes" : "NO", usable, kGlibcUsableOf16);
    dlclose(libc);  // drops only the reference RTLD_NOLOAD took
    return is_libc_symbol && usable == kGlibcUsableOf16;
}

// The four allocators as policies, so the workloads are instantiated per
// allocator and each call is as direct as its API allows.
struct QzMemoryPolicy {
    static void *Alloc(unsigned size) { return QzMemory::Alloc(size, kAlignment); }
    static void Release(void *block, unsigned size) { QzMemory::Dealloc(block, size, kAlignment); }
};

struct GlibcPolicy {
    static void *Alloc(unsigned size) { return std::malloc(size); }
    static void Release(void *block, unsigned) { std::free(block); }
};

struct MimallocPolicy {
    static void *Alloc(unsigned size) { return g_mimalloc.allocate(size); }
    static void Release(void *block, unsigned) { g_mimalloc.release(block); }
};

struct JemallocPolicy {
    static void *Alloc(unsigned size) { return g_jemalloc.allocate(size, 0); }
    static void Release(void *block, unsigned size) { g_jemalloc.release(block, size, 0); }
};

struct ChurnStep {
    LtNat32 slot;  // index into the thread's live blocks
    LtNat32 size;  // bytes of the block that replaces it
};

struct Workload {
    char const *name;
    std::vector<ChurnStep> script;  // kScriptLength steps
};

// Sizes uniform in [min_size, max_size]; fixed sizes pass the same bound twice.
static Workload MakeWorkload(char const *name, unsigned min_size, unsigned max_size)
{
    std::mt19937 random(kScriptSeed);
    std::uniform_int_distribution<LtNat32> slots(0, kLiveBlocks - 1);
    std::uniform_int_distribution<LtNat32> sizes(min_size, max_size);
    Workload workload{name, std::vector<ChurnStep>(kScriptLength)};
    for (ChurnStep &step : workload.script) {
        step.slot = slots(random);
        step.size = sizes(random);
    }
    return workload;
}

// Lets every worker finish its set-up before the clock starts.
struct StartGate {
    std::atomic<unsigned> arrived{0};
    std::atomic<bool> is_open{false};
};

template <class Policy>
static void *AllocOrDie(unsigned size)
{
    void *block = Policy::Alloc(size);
    if (block == nullptr)
        Die("allocation failed");
    return block;
}

// One thread's churn; *end_time is taken after the last pair, before clean-up.
template <class Policy>
static void RunChurnThread(std::vector<ChurnStep> const &script, StartGate *gate,
                           Clock::time_point *end_time)
{
    std::vector<void *> blocks(kLiveBlocks);
    std::vector<unsigned> sizes(kLiveBlocks);
    for (unsigned i = 0; i < kLiveBlocks; ++i) {
        sizes[i] = script[i].size;
        blocks[i] = AllocOrDie<Policy>(sizes[i]);
    }
    gate->arrived.fetch_add(1);
    while (!gate->is_open.load(std::memory_order_acquire))
        std::this_thread::yield();
    for (LtNat64 pair = 0; pair < kPairsPerThread; ++pair) {
        ChurnStep const &step = script[pair & (kScriptLength - 1)];
        Policy::Release(blocks[step.slot], sizes[step.slot]);
        void *block = AllocOrDie<Policy>(step.size);
        static_cast<unsigned char *>(block)[0] = static_cast<unsigned char>(pair);
        blocks[step.slot] = block;
        sizes[step.slot] = step.size;
    }
    *end_time = Clock::now();
    for (unsigned i = 0; i < kLiveBlocks; ++i)
        Policy::Release(blocks[i], sizes[i]);
}

// Nanoseconds per pair over all threads, wall time from gate to last end.
template <class Policy>
static double TimeChurn(Workload const &workload, unsigned thread_count)
{
    StartGate gate;
    std::vector<Clock::time_point> end_times(thread_count);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < thread_count; ++t)
        threads.emplace_back(RunChurnThread<Policy>, std::cref(workload.script), &gate,
                             &end_times[t]);
    while (gate.arrived.load() < thread_count)
        std::this_thread::yield();
    Clock::time_point const start_time = Clock::now();
    gate.is_open.store(true, std::memory_order_release);
    for (std::thread &thread : threads)
        thread.join();
    Clock::time_point const last_end = *std::max_element(end_times.begin(), end_times.end());
    std::chrono::duration<double, std::nano> const wall = last_end - start_time;
    return wall.count() / static_cast<double>(kPairsPerThread * thread_count);
}

// RssAnon of this process in bytes, read without allocating; 0 if unreadable.
static LtNat64 ReadRssAnonBytes()
{
    char text[8192];
    int const file = open("/proc/self/status", O_RDONLY);
    if (file < 0)
        return 0;
    ssize_t const length = read(file, text, sizeof text - 1);
    close(file);
    if (length <= 0)
        return 0;
    text[length] = '\0';
    char const *field = std::strstr(text, "RssAnon:");
    if (field == nullptr)
        return 0;
    return std::strtoull(field + std::strlen("RssAnon:"), nullptr, 10) * 1024;  // kB
}

// In the child: growth of RssAnon over kResidentObjects filled blocks.
template <class Policy>
static LtNat64 MeasureFillGrowth(unsigned object_size)
{
    std::vector<void *> blocks(kResidentObjects);  // zero-filled, so resident already
    LtNat64 const before = ReadRssAnonBytes();
    for (void *&block : blocks) {
        block = AllocOrDie<Policy>(object_size);
        std::memset(block, 0xA5, object_size);
    }
    LtNat64 const after = ReadRssAnonBytes();
    return before == 0 || after < before ? 0 : after - before;
}

// Runs the fill in a fresh child; growth per requested byte, or -1 on failure.
template <class Policy>
static double MeasureResident(unsigned object_size)
{
    int channel[2];
    if (pipe(channel) != 0)
        return -1;
    std::fflush(stdout);  // the child must not inherit unwritten output
    pid_t const child = fork();
    if (child < 0) {
        close(channel[0]);
        close(channel[1]);
        return -1;
    }
    if (child == 0) {
        close(channel[0]);
        LtNat64 const growth = MeasureFillGrowth<Policy>(object_size);
        bool const is_sent = write(channel[1], &growth, sizeof growth) == sizeof growth;
        _exit(is_sent ? 0 : 1);
    }
    close(channel[1]);
    LtNat64 growth = 0;
    bool const is_received = read(channel[0], &growth, sizeof growth) == sizeof growth;
    close(channel[0]);
    int status = 0;
    bool const is_clean_exit =
        waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!is_received || !is_clean_exit || growth == 0)
        return -1;
    LtNat64 const requested = LtNat64{kResidentObjects} * object_size;
    return static_cast<double>(growth) / static_cast<double>(requested);
}

struct Allocator {
    char const *name;
    bool is_available;
    double (*time_churn)(Workload const &, unsigned thread_count);
    double (*measure_resident)(unsigned object_size);
};

enum AllocatorIndex {
    eQZMEMORY,
    eGLIBC,
    eMIMALLOC,
    eJEMALLOC,
    eALLOCATOR_COUNT
};

static std::vector<Allocator> MakeAllocators()
{
    return {
        {"QzMemory", true, TimeChurn<QzMemoryPolicy>, MeasureResident<QzMemoryPolicy>},
        {"glibc", true, TimeChurn<GlibcPolicy>, MeasureResident<GlibcPolicy>},
        {"mimalloc", g_mimalloc.allocate != nullptr, TimeChurn<MimallocPolicy>,
         MeasureResident<MimallocPolicy>},
        {"jemalloc", g_jemalloc.allocate != nullptr, TimeChurn<JemallocPolicy>,
         MeasureResident<JemallocPolicy>},
    };
}

static double Median(std::vector<double> samples)
{
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

static char const *Verdict(bool is_met)
{
    return is_met ? "met" : "MISSED";
}

// Prints one cell of a figure, or "n/a" for an allocator that did not run.
// `suffix` marks ratios ("x") or is empty.
static void PrintFigure(double value, bool is_valid, int decimals, char const *suffix)
{
    int const width = 9 - static_cast<int>(std::strlen(suffix));
    if (is_valid)
        std::printf("%*.*f%s", width, decimals, value, suffix);
    else
        std::printf("%9s", "n/a");
}

struct TargetTally {
    int met = 0;
    int total = 0;

    bool Count(bool is_met)
    {
        ++total;
        met += is_met ? 1 : 0;
        return is_met;
    }
};

static void PrintTimeTable(std::vector<Allocator> const &allocators, TargetTally *tally)
{
    std::vector<Workload> const workloads = {
        MakeWorkload("random 8..512", kMinRandomSize, kMaxRandomSize),
        MakeWorkload("fixed 16", 16, 16),
        MakeWorkload("fixed 64", 64, 64),
        MakeWorkload("fixed 256", 256, 256),
    };
    std::printf("\nTime: ns per alloc+free pair, median of %d runs of %llu pairs per thread\n",
                kTimedRuns, static_cast<unsigned long long>(kPairsPerThread));
    std::printf("%-14s %3s", "workload", "thr");
    for (Allocator const &allocator : allocators)
        std::printf(" %9s", allocator.name);
    std::printf(" %9s %9s  %s\n", "Qz/glibc", "Qz/mi", "targets (1 thread)");
    for (unsigned thread_count = 1; thread_count <= 2; ++thread_count) {
        for (Workload const &workload : workloads) {
            std::vector<std::vector<double>> samples(allocators.size());
            for (Allocator const &allocator : allocators) {
                if (allocator.is_available)
                    (void)allocator.time_churn(workload, thread_count);  // warm-up, not kept
            }
            for (int run = 0; run < kTimedRuns; ++run) {
                for (std::size_t a = 0; a < allocators.size(); ++a) {
                    if (allocators[a].is_available)
                        samples[a].push_back(allocators[a].time_churn(workload, thread_count));
                }
            }
            std::printf("%-14s %3u", workload.name, thread_count);
            std::vector<double> medians(allocators.size(), 0.0);
            for (std::size_t a = 0; a < allocators.size(); ++a) {
                if (allocators[a].is_available)
                    medians[a] = Median(samples[a]);
                std::printf(" ");
                PrintFigure(medians[a], allocators[a].is_available, 2, "");
            }
            double const to_glibc = medians[eQZMEMORY] / medians[eGLIBC];
            bool const has_mimalloc = allocators[eMIMALLOC].is_available;
            double const to_mimalloc = has_mimalloc ? medians[eQZMEMORY] / medians[eMIMALLOC] : 0;
            std::printf(" ");
            PrintFigure(to_glibc, true, 2, "x");
            std::printf(" ");
            PrintFigure(to_mimalloc, has_mimalloc, 2, "x");
            if (thread_count == 1) {
                std::printf("  glibc %s", Verdict(tally->Count(to_glibc <= kMaxRatioToGlibc)));
                if (has_mimalloc)
                    std::printf(", mimalloc %s",
                                Verdict(tally->Count(to_mimalloc <= kMaxRatioToMimalloc)));
            }
            std::printf("\n");
            std::fflush(stdout);
        }
    }
    std::printf("Targets: one thread, QzMemory at most %.1fx glibc and %.1fx mimalloc.\n",
                kMaxRatioToGlibc, kMaxRatioToMimalloc);
}

static void PrintResidentTable(std::vector<Allocator> const &allocators, TargetTally *tally)
{
    static constexpr unsigned kObjectSizes[] = {16, 48};
    std::printf("\nResident: RssAnon growth per requested byte, %u objects, fresh child each\n",
                kResidentObjects);
    std::printf("%-14s %3s", "object size", "");
    for (Allocator const &allocator : allocators)
        std::printf(" %9s", allocator.name);
    std::printf("  targets\n");
    for (unsigned object_size : kObjectSizes) {
        std::printf("%11u B %3s", object_size, "");
        std::vector<double> figures(allocators.size(), -1);
        for (std::size_t a = 0; a < allocators.size(); ++a) {
            if (allocators[a].is_available)
                figures[a] = allocators[a].measure_resident(object_size);
            std::printf(" ");
            PrintFigure(figures[a], figures[a] > 0, 3, "");
        }
        double const own = figures[eQZMEMORY];
        bool is_densest = own > 0;
        for (std::size_t a = 0; a < allocators.size(); ++a) {
            if (a != eQZMEMORY && figures[a] > 0 && figures[a] <= own)
                is_densest = false;
        }
        bool const is_within_limit = own > 0 && own <= kMaxResidentPerRequested;
        std::printf("  <= %.2f %s, densest %s\n", kMaxResidentPerRequested,
                    Verdict(tally->Count(is_within_limit)), Verdict(tally->Count(is_densest)));
        std::fflush(stdout);
    }
    std::printf("Targets: QzMemory at most %.2f resident bytes per requested byte, and below "
                "every peer.\n",
                kMaxResidentPerRequested);
}

int main(int, char **argv)
{
    ReexecWithStaticTlsRoom(argv);
    Clock::time_point const started = Clock::now();
    QzMemory::Initialise();
    std::printf("qzutil allocator benchmark\n");
    char const *force_malloc = std::getenv("TY_FORCE_MALLOC");
    std::printf("  QzMemory: IsForceMalloc() = %d (TY_FORCE_MALLOC %s%s)\n",
                QzMemory::IsForceMalloc(), force_malloc != nullptr ? "= " : "unset",
                force_malloc != nullptr ? force_malloc : "");
    if (!IsGlobalMallocGlibc("before loading peers"))
        Die("the global malloc is not glibc's; a peer must have been linked in");
    LoadMimalloc();
    LoadJemalloc();
    if (!IsGlobalMallocGlibc("after loading peers"))
        Die("loading the peers replaced the global malloc");

    std::vector<Allocator> const allocators = MakeAllocators();
    TargetTally tally;
    PrintResidentTable(allocators, &tally);  // first: no allocator has churned yet
    PrintTimeTable(allocators, &tally);

    std::chrono::duration<double> const elapsed = Clock::now() - started;
    std::printf("\nTargets met: %d of %d. Total time %.1f s.\n", tally.met, tally.total,
                elapsed.count());
    QzMemory::Terminate();
    return 0;
}
