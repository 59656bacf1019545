// QzStreamBench.cpp: times the binary streams over a QzStreamBuffer beside
// memcpy of the same bytes, in one run, and prints ratios against the targets.
//
// Data: kValues Int32 values and as many doubles, made once. Streams are
// binary, without debug tokens and without a header (Begin(0, 0)), so their
// bytes are exactly the values, little-endian and packed; the program checks
// that before timing anything.
//
// Per value type, with Google Benchmark; each figure is the median of
// kRepetitions runs, in CPU time (user and system, so the kernel's work for
// fresh pages counts) because wall time also counts the time the process
// waits for a CPU on a busy machine:
// - write: arrays (WriteInt32Array / WriteDoubleArray, kPieceValues values a
//   call) and scalars (WriteInt32 / WriteDouble, one call a value), each into
//   a QzStreamBuffer that grows from empty (what a caller usually does; the
//   growth includes the kernel's first touch of every page) and into one
//   lent a buffer of the final size with HintUseAlways, already touched (the
//   stream's own cost);
// - read: arrays into a touched destination and scalars summed, from the
//   buffer written during set-up;
// - memcpy of the same bytes: source to the touched buffer of the final size
//   (peer of preallocated array writes), written stream to the destination
//   (peer of array reads), source to a fresh malloc'd buffer freed afterwards
//   (peer of the growing writes, which also meet fresh pages), and source to
//   the touched buffer in pieces of kPieceValues values (shown beside the
//   preallocated array writes, to separate the piece size from the stream).
// Scalar reads are summed (see SumInLanes); the sums are checked against the
// source's, and every written stream and read destination against the
// source, after the timed loop.
//
// Targets: array writes and reads at least 0.5x the bandwidth of their
// memcpy peer; scalar writes and reads at least 500 million values a second.
// The program exits with 2 if one is missed, and with 1 if a benchmark
// failed. Build with the "bench" preset; the run takes well under a minute
// and 5.5 GB of memory at its peak.

#include "qzutil/stream/QzStream.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzWriteStream.h"

static constexpr std::size_t kValues = 100000000;
static constexpr LtInt32 kPieceValues = 65536;  // values per array call
// Each benchmark runs kRepetitions times and reports the median, which a busy
// moment on the machine moves less than a mean; the whole run stays under a minute.
static constexpr int kRepetitions = 5;
static constexpr double kMinArrayRatio = 0.5;    // of memcpy's bandwidth
static constexpr double kMinScalarRate = 500e6;  // values a second

// What the benchmarks need of each value type: its stream calls, how its
// values are made, and what its sums are kept in.
template <typename T>
struct StreamOps;

template <>
struct StreamOps<LtInt32> {
    using Sum = LtInt64;
    static constexpr char const *kName = "Int32";
    // Multiplicative hashing spreads the values over the whole range.
    static LtInt32 Make(std::size_t index)
    {
        return static_cast<LtInt32>(static_cast<LtNat32>(index) * 2654435761u);
    }
    static void Write(QzWriteStream *stream, LtInt32 value) { stream->WriteInt32(value); }
    static void WriteArray(QzWriteStream *stream, LtInt32 const *values, LtInt32 count)
    {
        stream->WriteInt32Array(values, count);
    }
    static LtInt32 Read(QzReadStream *stream) { return stream->ReadInt32(); }
    static void ReadArray(QzReadStream *stream, LtInt32 *values, LtInt32 count)
    {
        stream->ReadInt32Array(values, count);
    }
};

template <>
struct StreamOps<LtDouble> {
    using Sum = LtDouble;
    static constexpr char const *kName = "Double";
    static LtDouble Make(std::size_t index) { return static_cast<LtDouble>(index) * 0.375 - 1e6; }
    static void Write(QzWriteStream *stream, LtDouble value) { stream->WriteDouble(value); }
    static void WriteArray(QzWriteStream *stream, LtDouble const *values, LtInt32 count)
    {
        stream->WriteDoubleArray(values, count);
    }
    static LtDouble Read(QzReadStream *stream) { return stream->ReadDouble(); }
    static void ReadArray(QzReadStream *stream, LtDouble *values, LtInt32 count)
    {
        stream->ReadDoubleArray(values, count);
    }
};

// Everything one value type's benchmarks share, made before any timing.
//
// Ownership: owns every buffer; `written` owns the stream bytes it holds.
// Invariant: source, destination and the written stream hold kValues values;
//            destination and preallocated are touched, so no timed copy
//            meets a fresh page except where that is the point.
template <typename T>
struct Workload {
    static constexpr std::size_t kBytes = kValues * sizeof(T);

    std::vector<T> source;
    std::vector<T> destination;
    std::vector<LtNat64> preallocated;  // kBytes, 8-aligned as the stream's data start
    QzStreamBuffer written;             // the stream of `source`, read by the read benchmarks
    typename StreamOps<T>::Sum expected_sum{};

    unsigned char *PreallocatedBytes()
    {
        return reinterpret_cast<unsigned char *>(preallocated.data());
    }
    bool MatchesSource(void const *bytes) const
    {
        return std::memcmp(bytes, source.data(), kBytes) == 0;
    }
};

// The sum of kValues values taken in order from `next`, in four lanes so
// that the latency of one chain of additions does not cap the rate; the
// scalar reads and the expected sum both use it, so they add alike. The
// lanes are separate variables, not an array, so that they stay in
// registers, callee-saved ones for integers where a slow path is called.
template <typename T, typename Next>
static typename StreamOps<T>::Sum SumInLanes(Next next)
{
    static_assert(kValues % 4 == 0, "whole rounds of lanes");
    typename StreamOps<T>::Sum lane0{}, lane1{}, lane2{}, lane3{};
    for (std::size_t i = 0; i < kValues; i += 4) {
        lane0 += next();
        lane1 += next();
        lane2 += next();
        lane3 += next();
    }
    return (lane0 + lane1) + (lane2 + lane3);
}

template <typename T>
static void WriteInPieces(QzWriteStream *stream, T const *values)
{
    for (std::size_t done = 0; done < kValues; done += kPieceValues) {
        std::size_t const left = kValues - done;
        LtInt32 const count = left < kPieceValues ? static_cast<LtInt32>(left) : kPieceValues;
        StreamOps<T>::WriteArray(stream, values + done, count);
    }
}

template <typename T>
static void ReadInPieces(QzReadStream *stream, T *values)
{
    for (std::size_t done = 0; done < kValues; done += kPieceValues) {
        std::size_t const left = kValues - done;
        LtInt32 const count = left < kPieceValues ? static_cast<LtInt32>(left) : kPieceValues;
        StreamOps<T>::ReadArray(stream, values + done, count);
    }
}

// Null with a message on failure.
template <typename T>
static std::unique_ptr<Workload<T>> MakeWorkload()
{
    auto workload = std::make_unique<Workload<T>>();
    workload->source.resize(kValues);
    for (std::size_t i = 0; i < kValues; ++i)
        workload->source[i] = StreamOps<T>::Make(i);
    workload->destination.resize(kValues);
    workload->preallocated.resize(Workload<T>::kBytes / sizeof(LtNat64));
    std::size_t next = 0;
    workload->expected_sum = SumInLanes<T>([&] { return workload->source[next++]; });

    QzWriteStream writer(&workload->written);
    int const is_begun = writer.Begin(0, 0);
    if (is_begun)
        WriteInPieces(&writer, workload->source.data());
    if (!is_begun || !writer.End() ||
        workload->written.GetAlignedUsed() != static_cast<int>(Workload<T>::kBytes) ||
        !workload->MatchesSource(workload->written.GetAlignedBuffer())) {
        std::fprintf(stderr, "qzutil_stream_bench: the %s stream is not the packed values\n",
                     StreamOps<T>::kName);
        return nullptr;
    }
    return workload;
}

static void SetRates(benchmark::State &state, std::size_t bytes, std::size_t values)
{
    using benchmark::Counter;
    if (bytes != 0)
        state.counters["bytes"] =
            Counter(static_cast<double>(bytes), Counter::kIsIterationInvariantRate);
    if (values != 0)
        state.counters["values"] =
            Counter(static_cast<double>(values), Counter::kIsIterationInvariantRate);
}

// --- The benchmarks ---

enum class Target {
    eGROWING,
    ePREALLOCATED
};
enum class Shape {
    eARRAYS,
    eSCALARS
};

template <typename T>
static void WriteStream(benchmark::State &state, Workload<T> *workload, Target target, Shape shape)
{
    QzStreamBuffer sink;
    QzWriteStream writer(&sink);
    T const *const values = workload->source.data();
    std::size_t const bytes = Workload<T>::kBytes;
    if (target == Target::ePREALLOCATED)
        std::memset(workload->PreallocatedBytes(), 0, bytes);  // memcpy may have filled it
    for (auto _ : state) {
        // Empties the growing sink, freeing last round's buffer, or lends the
        // preallocated one again from its start.
        if (target == Target::eGROWING)
            sink.SetBuffer(nullptr, 0, QzStreamBuffer::HintUseIfAligned);
        else
            sink.SetBuffer(workload->PreallocatedBytes(), static_cast<int>(bytes),
                           QzStreamBuffer::HintUseAlways);
        if (!writer.Begin(0, 0)) {
            state.SkipWithError("Begin failed");
            break;
        }
        if (shape == Shape::eARRAYS) {
            WriteInPieces(&writer, values);
        } else {
            for (std::size_t i = 0; i < kValues; ++i)
                StreamOps<T>::Write(&writer, values[i]);
        }
        if (!writer.End()) {
            state.SkipWithError("End failed");
            break;
        }
    }
    if (sink.GetAlignedUsed() != static_cast<int>(bytes) ||
        !workload->MatchesSource(sink.GetAlignedBuffer()))
        state.SkipWithError("the stream differs from the source");
    SetRates(state, bytes, shape == Shape::eSCALARS ? kValues : 0);
}

template <typename T>
static void ReadStream(benchmark::State &state, Workload<T> *workload, Shape shape)
{
    QzReadStream reader(&workload->written);
    bool is_sum_right = true;
    std::memset(workload->destination.data(), 0, Workload<T>::kBytes);
    for (auto _ : state) {
        if (!reader.Begin(0, 0)) {
            state.SkipWithError("Begin failed");
            break;
        }
        if (shape == Shape::eARRAYS) {
            ReadInPieces(&reader, workload->destination.data());
            benchmark::ClobberMemory();
        } else {
            auto const sum = SumInLanes<T>([&] { return StreamOps<T>::Read(&reader); });
            benchmark::DoNotOptimize(sum);
            is_sum_right = is_sum_right && sum == workload->expected_sum;
        }
        if (!reader.End(1)) {
            state.SkipWithError("End failed");
            break;
        }
    }
    if (shape == Shape::eARRAYS ? !workload->MatchesSource(workload->destination.data())
                                : !is_sum_right)
        state.SkipWithError("the values read differ from the source");
    SetRates(state, Workload<T>::kBytes, shape == Shape::eSCALARS ? kValues : 0);
}

// The last copies as array writes do, one piece a call. It shows how much of
// a gap to the whole copy is due to the piece size rather than the stream:
// glibc copies a buffer this large with non-temporal stores, and a piece with
// ordinary ones, which first read each destination line into the cache.
enum class Copy {
    eINTO_PREALLOCATED,
    eOUT_OF_STREAM,
    eINTO_FRESH,
    eINTO_PREALLOCATED_IN_PIECES
};

template <typename T>
static void Memcpy(benchmark::State &state, Workload<T> *workload, Copy copy)
{
    std::size_t const bytes = Workload<T>::kBytes;
    for (auto _ : state) {
        if (copy == Copy::eINTO_FRESH) {
            void *fresh = std::malloc(bytes);
            if (fresh == nullptr) {
                state.SkipWithError("no memory");
                break;
            }
            std::memcpy(fresh, workload->source.data(), bytes);
            benchmark::DoNotOptimize(fresh);
            benchmark::ClobberMemory();
            std::free(fresh);
        } else if (copy == Copy::eINTO_PREALLOCATED) {
            std::memcpy(workload->PreallocatedBytes(), workload->source.data(), bytes);
            benchmark::ClobberMemory();
        } else if (copy == Copy::eINTO_PREALLOCATED_IN_PIECES) {
            std::size_t const piece = kPieceValues * sizeof(T);
            auto const *from = reinterpret_cast<unsigned char const *>(workload->source.data());
            for (std::size_t done = 0; done < bytes; done += piece)
                std::memcpy(workload->PreallocatedBytes() + done, from + done,
                            bytes - done < piece ? bytes - done : piece);
            benchmark::ClobberMemory();
        } else {
            std::memcpy(workload->destination.data(), workload->written.GetAlignedBuffer(), bytes);
            benchmark::ClobberMemory();
        }
    }
    SetRates(state, bytes, 0);
}

// --- Registration and the ratio table ---

static std::string NameOf(char const *type, char const *what)
{
    return std::string(type) + "/" + what;
}

template <typename T>
static void Register(Workload<T> *workload)
{
    char const *const type = StreamOps<T>::kName;
    auto add = [type](char const *what, auto run) {
        benchmark::RegisterBenchmark(NameOf(type, what).c_str(), run)
            ->Iterations(1)
            ->Repetitions(kRepetitions)
            ->ReportAggregatesOnly(true)
            ->Unit(benchmark::kMillisecond);
    };
    add("memcpy/into_preallocated",
        [workload](benchmark::State &s) { Memcpy(s, workload, Copy::eINTO_PREALLOCATED); });
    add("memcpy/into_preallocated_in_pieces", [workload](benchmark::State &s) {
        Memcpy(s, workload, Copy::eINTO_PREALLOCATED_IN_PIECES);
    });
    add("memcpy/out_of_stream",
        [workload](benchmark::State &s) { Memcpy(s, workload, Copy::eOUT_OF_STREAM); });
    add("memcpy/into_fresh",
        [workload](benchmark::State &s) { Memcpy(s, workload, Copy::eINTO_FRESH); });
    add("write_arrays/preallocated", [workload](benchmark::State &s) {
        WriteStream(s, workload, Target::ePREALLOCATED, Shape::eARRAYS);
    });
    add("write_arrays/growing", [workload](benchmark::State &s) {
        WriteStream(s, workload, Target::eGROWING, Shape::eARRAYS);
    });
    add("read_arrays",
        [workload](benchmark::State &s) { ReadStream(s, workload, Shape::eARRAYS); });
    add("write_scalars/preallocated", [workload](benchmark::State &s) {
        WriteStream(s, workload, Target::ePREALLOCATED, Shape::eSCALARS);
    });
    add("write_scalars/growing", [workload](benchmark::State &s) {
        WriteStream(s, workload, Target::eGROWING, Shape::eSCALARS);
    });
    add("read_scalars",
        [workload](benchmark::State &s) { ReadStream(s, workload, Shape::eSCALARS); });
}

// The console table of the medians, and their rates kept for the ratios.
class RateRecorder : public benchmark::ConsoleReporter {
public:
    RateRecorder() : ConsoleReporter(OO_Tabular) {}  // no colour codes

    // Shows the medians and any failed run, and keeps the medians' rates.
    void ReportRuns(std::vector<Run> const &runs) override
    {
        std::vector<Run> shown;
        for (Run const &run : runs) {
            if (run.error_occurred) {
                shown.push_back(run);
                m_is_failed = true;
                continue;
            }
            if (run.run_type != Run::RT_Aggregate || run.aggregate_name != "median")
                continue;
            shown.push_back(run);
            // The registered name, without the "/iterations:1/..." suffixes.
            Rates &rates = m_rates[run.run_name.function_name];
            rates.bytes = CounterOf(run, "bytes");
            rates.values = CounterOf(run, "values");
        }
        if (!shown.empty())
            ConsoleReporter::ReportRuns(shown);
    }

    // A benchmark failed: a stream call, or the check of what it wrote or read.
    bool IsFailed() const { return m_is_failed; }

    // Bytes or values a second; 0 for a benchmark that did not run.
    double Bytes(std::string const &name) const { return Find(name).bytes; }
    double Values(std::string const &name) const { return Find(name).values; }

private:
    struct Rates {
        double bytes = 0.0;
        double values = 0.0;
    };

    static double CounterOf(Run const &run, char const *name)
    {
        auto const found = run.counters.find(name);
        return found != run.counters.end() ? found->second.value : 0.0;
    }
    Rates Find(std::string const &name) const
    {
        auto const found = m_rates.find(name);
        return found != m_rates.end() ? found->second : Rates();
    }

    std::map<std::string, Rates> m_rates;
    bool m_is_failed = false;
};

// Whether a line of the table is judged against the target or only shown.
enum class Verdict {
    eJUDGED,
    eSHOWN
};

// One line of the table; false if a judged line missed the target. Lines
// whose runs were filtered out or failed print "-" here and count as met;
// a failure makes the program fail instead.
static bool PrintArrayRatio(RateRecorder const &recorder, char const *type, char const *what,
                            char const *peer, Verdict verdict)
{
    double const stream = recorder.Bytes(NameOf(type, what));
    double const memcpy_rate = recorder.Bytes(NameOf(type, peer));
    if (stream == 0.0 || memcpy_rate == 0.0) {
        std::printf("%-7s %-27s %-34s        -\n", type, what, peer);
        return true;
    }
    double const ratio = stream / memcpy_rate;
    bool const is_met = verdict == Verdict::eSHOWN || ratio >= kMinArrayRatio;
    char const *const outcome = verdict == Verdict::eSHOWN ? "(shown only)"
                                : is_met                   ? "met"
                                                           : "MISSED";
    std::printf("%-7s %-27s %-34s %6.2f %6.2f %6.2fx  %s\n", type, what, peer, stream / 1e9,
                memcpy_rate / 1e9, ratio, outcome);
    return is_met;
}

static bool PrintScalarRate(RateRecorder const &recorder, char const *type, char const *what)
{
    double const rate = recorder.Values(NameOf(type, what));
    if (rate == 0.0) {
        std::printf("%-7s %-27s        -\n", type, what);
        return true;
    }
    bool const is_met = rate >= kMinScalarRate;
    std::printf("%-7s %-27s %8.1f  %s\n", type, what, rate / 1e6, is_met ? "met" : "MISSED");
    return is_met;
}

static bool PrintRatios(RateRecorder const &recorder)
{
    char const *const types[] = {StreamOps<LtInt32>::kName, StreamOps<LtDouble>::kName};
    bool is_met = true;
    std::printf("\nArrays against memcpy, GB/s (target %.1fx)\n", kMinArrayRatio);
    std::printf("%-7s %-27s %-34s %6s %6s %7s\n", "type", "stream", "memcpy peer", "stream",
                "memcpy", "ratio");
    // A growing buffer meets fresh pages, so its like-for-like peer is the
    // copy into fresh memory; beside the warm copy it shows the kernel's share.
    for (char const *type : types) {
        is_met &= PrintArrayRatio(recorder, type, "write_arrays/preallocated",
                                  "memcpy/into_preallocated", Verdict::eJUDGED);
        is_met &= PrintArrayRatio(recorder, type, "write_arrays/preallocated",
                                  "memcpy/into_preallocated_in_pieces", Verdict::eSHOWN);
        is_met &= PrintArrayRatio(recorder, type, "write_arrays/growing", "memcpy/into_fresh",
                                  Verdict::eJUDGED);
        is_met &= PrintArrayRatio(recorder, type, "write_arrays/growing",
                                  "memcpy/into_preallocated", Verdict::eSHOWN);
        is_met &= PrintArrayRatio(recorder, type, "read_arrays", "memcpy/out_of_stream",
                                  Verdict::eJUDGED);
    }
    std::printf("\nScalars, million values/s (target %.0f)\n", kMinScalarRate / 1e6);
    for (char const *type : types) {
        is_met &= PrintScalarRate(recorder, type, "write_scalars/preallocated");
        is_met &= PrintScalarRate(recorder, type, "write_scalars/growing");
        is_met &= PrintScalarRate(recorder, type, "read_scalars");
    }
    return is_met;
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    QzStream::Initialise();
    int result = 1;
    {
        std::unique_ptr<Workload<LtInt32>> const ints = MakeWorkload<LtInt32>();
        std::unique_ptr<Workload<LtDouble>> const doubles = MakeWorkload<LtDouble>();
        if (ints && doubles) {
            Register(ints.get());
            Register(doubles.get());
            RateRecorder recorder;
            benchmark::RunSpecifiedBenchmarks(&recorder);
            bool const is_met = PrintRatios(recorder);
            result = recorder.IsFailed() ? 1 : is_met ? 0 : 2;
        }
    }
    benchmark::Shutdown();
    QzStream::Terminate();
    return result;
}
