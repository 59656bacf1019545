// QzGuardBench.cpp: times Adler-32 and the Blowfish filter beside zlib and
// OpenSSL in one run, and prints ratios against the targets.
//
// Adler-32: one 64 KiB block of fixed pseudo-random bytes, in cache, summed
// over and over by QzChecksum (Begin, AddNat8Array, End), by the plain
// QzChecksum::Adler32 and by zlib's adler32; the three values are checked
// equal first. Target: both forms at least 1.0x zlib's bytes a second.
//
// Blowfish: 256 MiB of fixed bytes under one 16-byte key.
// - The filter through a stream: Nat8 arrays of 64 KiB written by a
//   QzWriteStream (Begin(0, 0): no header line) with the filter active, into
//   a QzStreamBuffer lent a touched buffer of the frames' size, so that the
//   sink holds exactly 4,096 frames of 65,544 bytes. This is the judged line.
// - The filter driven directly (WriteLock, copy, WriteProcess), which shows
//   what the stream adds.
// - Peers over the same bytes and key: OpenSSL's BF_ecb_encrypt a block at
//   a time, and EVP "BF-ECB" (legacy provider) in one EVP_EncryptUpdate; the
//   faster of the two is the peer. The filter does more than they do (the
//   Adler-32 and the header of each frame, and the copy into its buffer).
// After the timed runs the frames are read back through the filter and
// compared with the source, and the two OpenSSL outputs with each other.
// Target: the filter through the stream at least 1.0x the peer.
//
// The program exits with 2 if a target is missed. Build with the "bench"
// preset: scripts/build.sh bench && build/bench/bench/qzutil_guard_bench

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "qzutil/stream/QzBlowfishFilter.h"
// The low-level BF_ calls are deprecated in OpenSSL 3 but still the plainest
// way to run its Blowfish a block at a time; the benchmark alone uses them.
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/blowfish.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <zlib.h>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/stream/QzChecksum.h"
#include "qzutil/stream/QzReadStream.h"
#include "qzutil/stream/QzStreamBuffer.h"
#include "qzutil/stream/QzWriteStream.h"

static constexpr std::size_t kAdlerBlock = 64 * 1024;    // bytes
static constexpr std::size_t kCipherBytes = 256u << 20;  // bytes
static constexpr std::size_t kPiece = 64 * 1024;         // bytes per array written
static constexpr std::size_t kFrameData = 65536;         // the filter's block size
static constexpr std::size_t kFrameHeader = 8;           // bytes
static constexpr std::size_t kFramedBytes = kCipherBytes + kCipherBytes / kFrameData * kFrameHeader;
static constexpr int kCipherIterations = 2;  // each is over a second
static constexpr double kMinRatio = 1.0;
static unsigned char const kKey[16] = {0x3A, 0x91, 0x07, 0xC4, 0x5E, 0xF2, 0x18, 0x6B,
                                       0xD0, 0x24, 0x8F, 0x73, 0xAA, 0x16, 0xE9, 0x55};

// Everything the benchmarks share, made before any timing.
//
// Ownership: owns every buffer.
// Invariant: framed holds kFramedBytes, 8-aligned and touched; the cipher
//            outputs hold kCipherBytes.
struct Workload {
    std::vector<unsigned char> adler_block;
    std::vector<unsigned char> plain;
    std::vector<unsigned char> openssl_blocks;  // BF_ecb_encrypt's output
    std::vector<unsigned char> openssl_evp;     // EVP's output
    std::vector<LtNat64> framed;                // the filter's frames
    bool is_framed = false;                     // a filter run has filled `framed`

    unsigned char *Framed() { return reinterpret_cast<unsigned char *>(framed.data()); }
};

static std::unique_ptr<Workload> MakeWorkload()
{
    auto workload = std::make_unique<Workload>();
    std::mt19937_64 random(20240607);  // fixed: every run times the same bytes
    workload->adler_block.resize(kAdlerBlock);
    for (unsigned char &byte : workload->adler_block)
        byte = static_cast<unsigned char>(random());
    workload->plain.resize(kCipherBytes);
    for (std::size_t i = 0; i < kCipherBytes; i += 8) {
        LtNat64 const word = random();
        std::memcpy(&workload->plain[i], &word, 8);
    }
    workload->openssl_blocks.assign(kCipherBytes, 0);
    workload->openssl_evp.assign(kCipherBytes, 0);
    workload->framed.assign(kFramedBytes / 8, 0);
    return workload;
}

static void SetBytes(benchmark::State &state, std::size_t bytes)
{
    state.counters["bytes"] = benchmark::Counter(static_cast<double>(bytes),
                                                 benchmark::Counter::kIsIterationInvariantRate);
}

// --- Adler-32 ---

enum class Adler {
    eZLIB,
    eADD_NAT8_ARRAY,
    ePLAIN_FUNCTION
};

static void RunAdler(benchmark::State &state, Workload *workload, Adler which)
{
    unsigned char const *const block = workload->adler_block.data();
    for (auto _ : state) {
        unsigned value = 0;
        if (which == Adler::eZLIB) {
            value = static_cast<unsigned>(adler32(1, block, static_cast<uInt>(kAdlerBlock)));
        } else if (which == Adler::eADD_NAT8_ARRAY) {
            QzChecksum checksum;
            checksum.Begin();
            checksum.AddNat8Array(block, static_cast<unsigned>(kAdlerBlock));
            value = checksum.End();
        } else {
            value = QzChecksum::Adler32(block, kAdlerBlock);
        }
        benchmark::DoNotOptimize(value);
    }
    SetBytes(state, kAdlerBlock);
}

// --- Blowfish ---

static void FilterThroughStream(benchmark::State &state, Workload *workload)
{
    QzBlowfishFilter filter(sizeof kKey, kKey);
    QzStreamBuffer sink;
    QzWriteStream writer(&sink);
    writer.AddActiveFilter(&filter);
    for (auto _ : state) {
        sink.SetBuffer(workload->Framed(), static_cast<int>(kFramedBytes),
                       QzStreamBuffer::HintUseAlways);
        if (!writer.Begin(0, 0)) {
            state.SkipWithError("Begin failed");
            return;
        }
        for (std::size_t done = 0; done < kCipherBytes; done += kPiece)
            writer.WriteNat8Array(&workload->plain[done], static_cast<LtInt32>(kPiece));
        if (!writer.End()) {
            state.SkipWithError("End failed");
            return;
        }
    }
    if (sink.GetAlignedUsed() != static_cast<int>(kFramedBytes)) {
        state.SkipWithError("the frames are not 4,096 full blocks");
        return;
    }
    workload->is_framed = true;
    SetBytes(state, kCipherBytes);
}

static void FilterDirect(benchmark::State &state, Workload *workload)
{
    QzBlowfishFilter filter(sizeof kKey, kKey);
    QzStreamBuffer sink;
    filter.SetSink(&sink);
    for (auto _ : state) {
        sink.SetBuffer(workload->Framed(), static_cast<int>(kFramedBytes),
                       QzStreamBuffer::HintUseAlways);
        bool is_written = sink.WriteBegin(nullptr) && filter.WriteBegin(nullptr);
        for (std::size_t done = 0; is_written && done < kCipherBytes; done += kPiece) {
            unsigned char *buffer = nullptr;
            int size = 0;
            is_written = filter.WriteLock(&buffer, &size) && size >= static_cast<int>(kPiece);
            if (is_written) {
                std::memcpy(buffer, &workload->plain[done], kPiece);
                is_written = filter.WriteProcess(static_cast<int>(kPiece));
            }
        }
        if (!filter.WriteEnd() || !sink.WriteEnd() || !is_written) {
            state.SkipWithError("the filter refused the bytes");
            return;
        }
    }
    workload->is_framed = sink.GetAlignedUsed() == static_cast<int>(kFramedBytes);
    SetBytes(state, kCipherBytes);
}

static void OpenSslBlocks(benchmark::State &state, Workload *workload)
{
    BF_KEY key;
    BF_set_key(&key, sizeof kKey, kKey);
    for (auto _ : state) {
        for (std::size_t i = 0; i < kCipherBytes; i += 8)
            BF_ecb_encrypt(&workload->plain[i], &workload->openssl_blocks[i], &key, BF_ENCRYPT);
        benchmark::ClobberMemory();
    }
    SetBytes(state, kCipherBytes);
}

static void OpenSslEvp(benchmark::State &state, Workload *workload)
{
    EVP_CIPHER *cipher = EVP_CIPHER_fetch(nullptr, "BF-ECB", nullptr);
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    // The default key length of BF-ECB is 16 bytes, the key's.
    if (cipher == nullptr || context == nullptr ||
        !EVP_EncryptInit_ex2(context, cipher, kKey, nullptr, nullptr) ||
        !EVP_CIPHER_CTX_set_padding(context, 0)) {
        state.SkipWithError("no BF-ECB in this OpenSSL (legacy provider missing?)");
    } else {
        for (auto _ : state) {
            int written = 0;
            if (!EVP_EncryptUpdate(context, workload->openssl_evp.data(), &written,
                                   workload->plain.data(), static_cast<int>(kCipherBytes)) ||
                written != static_cast<int>(kCipherBytes)) {
                state.SkipWithError("EVP_EncryptUpdate failed");
                break;
            }
            benchmark::ClobberMemory();
        }
        SetBytes(state, kCipherBytes);
    }
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(cipher);
}

// --- Checks after timing ---

// The frames read back through a filter with the same key give the source.
static bool FramesReadBack(Workload *workload)
{
    QzStreamBuffer sink;
    if (!sink.SetBuffer(workload->Framed(), static_cast<int>(kFramedBytes),
                        QzStreamBuffer::HintUseAlways))
        return false;
    QzBlowfishFilter filter(sizeof kKey, kKey);
    QzReadStream reader(&sink);
    reader.AddActiveFilter(&filter);
    std::vector<unsigned char> plain(kCipherBytes);
    if (!reader.Begin(0, 0))
        return false;
    for (std::size_t done = 0; done < kCipherBytes; done += kPiece)
        reader.ReadNat8Array(&plain[done], static_cast<LtInt32>(kPiece));
    return reader.End(0) && plain == workload->plain;
}

// --- Registration and the ratio table ---

static void Register(Workload *workload)
{
    auto adler = [workload](char const *name, Adler which) {
        benchmark::RegisterBenchmark(name, [workload, which](benchmark::State &state) {
            RunAdler(state, workload, which);
        })->Unit(benchmark::kMicrosecond);
    };
    adler("adler32/zlib", Adler::eZLIB);
    adler("adler32/QzChecksum::AddNat8Array", Adler::eADD_NAT8_ARRAY);
    adler("adler32/QzChecksum::Adler32", Adler::ePLAIN_FUNCTION);

    auto cipher = [workload](char const *name, void (*run)(benchmark::State &, Workload *)) {
        benchmark::RegisterBenchmark(
            name, [workload, run](benchmark::State &state) { run(state, workload); })
            ->Iterations(kCipherIterations)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
    };
    cipher("blowfish/openssl_BF_ecb_encrypt", OpenSslBlocks);
    cipher("blowfish/openssl_EVP_BF-ECB", OpenSslEvp);
    cipher("blowfish/filter_through_stream", FilterThroughStream);
    cipher("blowfish/filter_direct", FilterDirect);
}

// The console output as usual, and each run's bytes a second kept by name.
class RateRecorder : public benchmark::ConsoleReporter {
public:
    RateRecorder() : ConsoleReporter(OO_Tabular) {}  // no colour codes

    void ReportRuns(std::vector<Run> const &runs) override
    {
        for (Run const &run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Iteration)
                continue;
            auto const found = run.counters.find("bytes");
            if (found != run.counters.end())
                m_rates[run.run_name.function_name] = found->second.value;
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // Bytes a second; 0 for a benchmark that did not run.
    double Rate(std::string const &name) const
    {
        auto const found = m_rates.find(name);
        return found != m_rates.end() ? found->second : 0.0;
    }

private:
    std::map<std::string, double> m_rates;
};

enum class Verdict {
    eJUDGED,
    eSHOWN
};

// One line of the table; false if a judged line missed the target. Lines
// whose runs were filtered out or failed print "-" and count as met.
static bool PrintRatio(double ours, double peer, char const *what, double unit, Verdict verdict)
{
    if (ours == 0.0 || peer == 0.0) {
        std::printf("  %-34s        -\n", what);
        return true;
    }
    double const ratio = ours / peer;
    bool const is_met = verdict == Verdict::eSHOWN || ratio >= kMinRatio;
    char const *const outcome = verdict == Verdict::eSHOWN ? "(shown only)"
                                : is_met                   ? "met"
                                                           : "MISSED";
    std::printf("  %-34s %9.2f %9.2f %6.2fx  %s\n", what, ours / unit, peer / unit, ratio, outcome);
    return is_met;
}

static bool PrintRatios(RateRecorder const &recorder)
{
    bool is_met = true;
    double const zlib = recorder.Rate("adler32/zlib");
    std::printf("\nAdler-32 on 64 KiB blocks, GB/s (target %.1fx zlib)\n", kMinRatio);
    std::printf("  %-34s %9s %9s %7s\n", "", "ours", "zlib", "ratio");
    is_met &= PrintRatio(recorder.Rate("adler32/QzChecksum::AddNat8Array"), zlib,
                         "QzChecksum::AddNat8Array", 1e9, Verdict::eJUDGED);
    is_met &= PrintRatio(recorder.Rate("adler32/QzChecksum::Adler32"), zlib, "QzChecksum::Adler32",
                         1e9, Verdict::eJUDGED);

    double const blocks = recorder.Rate("blowfish/openssl_BF_ecb_encrypt");
    double const evp = recorder.Rate("blowfish/openssl_EVP_BF-ECB");
    double const peer = blocks > evp ? blocks : evp;
    std::printf("\nBlowfish over 256 MiB, MB/s (target %.1fx the faster OpenSSL ECB: %s)\n",
                kMinRatio, blocks > evp ? "BF_ecb_encrypt" : "EVP BF-ECB");
    std::printf("  BF_ecb_encrypt %.1f, EVP BF-ECB %.1f\n", blocks / 1e6, evp / 1e6);
    std::printf("  %-34s %9s %9s %7s\n", "", "ours", "OpenSSL", "ratio");
    is_met &= PrintRatio(recorder.Rate("blowfish/filter_through_stream"), peer,
                         "filter through QzWriteStream", 1e6, Verdict::eJUDGED);
    is_met &= PrintRatio(recorder.Rate("blowfish/filter_direct"), peer, "filter driven directly",
                         1e6, Verdict::eSHOWN);
    return is_met;
}

// False with a message if a run produced wrong bytes.
static bool CheckOutputs(RateRecorder const &recorder, Workload *workload)
{
    unsigned const expected = static_cast<unsigned>(
        adler32(1, workload->adler_block.data(), static_cast<uInt>(kAdlerBlock)));
    QzChecksum checksum;
    checksum.AddNat8Array(workload->adler_block.data(), static_cast<unsigned>(kAdlerBlock));
    bool is_right = true;
    if (checksum.End() != expected ||
        QzChecksum::Adler32(workload->adler_block.data(), kAdlerBlock) != expected) {
        std::fprintf(stderr, "qzutil_guard_bench: Adler-32 differs from zlib's\n");
        is_right = false;
    }
    if (workload->is_framed && !FramesReadBack(workload)) {
        std::fprintf(stderr, "qzutil_guard_bench: the frames do not read back as the source\n");
        is_right = false;
    }
    bool const both_ran = recorder.Rate("blowfish/openssl_BF_ecb_encrypt") != 0.0 &&
                          recorder.Rate("blowfish/openssl_EVP_BF-ECB") != 0.0;
    if (both_ran && workload->openssl_blocks != workload->openssl_evp) {
        std::fprintf(stderr, "qzutil_guard_bench: OpenSSL's two ECB outputs differ\n");
        is_right = false;
    }
    return is_right;
}

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    // Blowfish lives in OpenSSL 3's legacy provider; loading it explicitly
    // drops the default one, which is therefore loaded too.
    OSSL_PROVIDER *legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    OSSL_PROVIDER *default_provider = OSSL_PROVIDER_load(nullptr, "default");
    QzStream::Initialise();
    QzChecksum::Initialise();
    QzBlowfishFilter::Initialise();
    int result = 1;
    {
        std::unique_ptr<Workload> const workload = MakeWorkload();
        Register(workload.get());
        RateRecorder recorder;
        benchmark::RunSpecifiedBenchmarks(&recorder);
        bool const is_right = CheckOutputs(recorder, workload.get());
        bool const is_met = PrintRatios(recorder);
        result = !is_right ? 1 : is_met ? 0 : 2;
    }
    QzBlowfishFilter::Terminate();
    QzChecksum::Terminate();
    QzStream::Terminate();
    benchmark::Shutdown();
    if (default_provider)
        OSSL_PROVIDER_unload(default_provider);
    if (legacy)
        OSSL_PROVIDER_unload(legacy);
    return result;
}
