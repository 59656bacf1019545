// QzJsonBench.cpp: times the JSON streams beside cJSON used directly, on the
// same generated document of about 20 MB, in one run, and prints ratios
// against the target.
//
// Document: {"Type":"Bench","Version":1,"Records":[...]} with kRecords
// records, each an object of a name, an int, a double of full precision, a
// boolean, a point of three doubles, a 64-bit serial as a decimal string and
// three short tags. The values are made once from a fixed seed.
//
// Write: QzJsonWriteStream from BeginWrite to EndWrite (unformatted, into a
// QzStringBuffer) against building the same tree with cJSON_Create... and
// cJSON_AddItemTo... and printing it with cJSON_PrintUnformatted. cJSON
// prints numbers by its own rule (shortest of 15 or 17 digits after a
// re-scan); the streams by "%.17g" in the "C" numeric locale.
//
// Read: QzJsonReadStream from BeginRead to EndRead, reading every value by
// name, against cJSON_Parse and a walk with cJSON_GetObjectItem over each
// record and the array's own links, then cJSON_Delete. Both read the text
// that the streams wrote, and both sum what they read, so that neither walk
// can be left out and the sums show they read the same.
//
// Each figure is the median of kTimedRuns rounds in which both sides run
// once in turn after one warm-up. Target: the streams at most 1.1x cJSON's
// time, for writing and for reading. Build with the "bench" preset.
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <cjson/cJSON.h>

#include "qzutil/frame/LtTypes.h"
#include "qzutil/structured/QzJsonReadStream.h"
#include "qzutil/structured/QzJsonWriteStream.h"
#include "qzutil/text/QzStringBuffer.h"

using Clock = std::chrono::steady_clock;

constexpr int kRecords = 100000;  // about 20 MB of text
constexpr int kTimedRuns = 5;
constexpr double kMaxRatio = 1.1;
constexpr int kTagsPerRecord = 3;

struct Record {
    std::string name;
    int id;
    double weight;
    bool is_visible;
    double position[3];
    LtNat64 serial;
    std::string tags[kTagsPerRecord];
};

static std::vector<Record> MakeRecords()
{
    std::mt19937_64 random(20240601);  // fixed: every run times the same document
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    std::vector<Record> records(kRecords);
    for (int i = 0; i < kRecords; ++i) {
        Record &record = records[static_cast<std::size_t>(i)];
        record.name = "record " + std::to_string(i);
        record.id = static_cast<int>(random() % 2000000) - 1000000;
        record.weight = unit(random) * 1000.0;
        record.is_visible = (random() & 1) != 0;
        for (double &coordinate : record.position)
            coordinate = (unit(random) - 0.5) * 1e4;
        record.serial = random();
        for (int t = 0; t < kTagsPerRecord; ++t)
            record.tags[t] = "tag" + std::to_string(random() % 100);
    }
    return records;
}

// What a reader saw, folded so that two readers of one text agree.
struct ReadSums {
    double numbers = 0.0;
    LtNat64 integers = 0;
    LtNat64 text_bytes = 0;

    bool operator==(ReadSums const &other) const
    {
        return numbers == other.numbers && integers == other.integers &&
               text_bytes == other.text_bytes;
    }
};

// --- The streams ---

static std::size_t WriteWithStreams(std::vector<Record> const &records, QzStringBuffer *out)
{
    QzJsonStreamData data;
    QzJsonWriteStream writer(&data);
    writer.BeginWrite();
    writer.BeginObject();
    writer.WritePropertyName("Type");
    writer.WriteString("Bench");
    writer.WritePropertyName("Version");
    writer.WriteInteger(1);
    writer.WritePropertyName("Records");
    writer.BeginArray();
    for (Record const &record : records) {
        writer.BeginObject();
        writer.WritePropertyName("Name");
        writer.WriteString(record.name.c_str());
        writer.WritePropertyName("Id");
        writer.WriteInteger(record.id);
        writer.WritePropertyName("Weight");
        writer.WriteDouble(record.weight);
        writer.WritePropertyName("Visible");
        writer.WriteBoolean(record.is_visible);
        writer.WritePropertyName("Position");
        writer.Write(record.position);
        writer.WritePropertyName("Serial");
        writer.WriteNat64AsString(record.serial);
        writer.WritePropertyName("Tags");
        writer.BeginArray();
        for (std::string const &tag : record.tags)
            writer.WriteString(tag.c_str());
        writer.EndArray();
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    if (!writer.EndWrite(false, out)) {
        std::fprintf(stderr, "qzutil_json_bench: the write stream failed\n");
        std::exit(1);
    }
    return static_cast<std::size_t>(out->GetLength());
}

static ReadSums ReadWithStreams(char const *text)
{
    ReadSums sums;
    QzJsonStreamData data;
    QzJsonReadStream reader(&data);
    reader.BeginRead(text);
    reader.BeginObject();
    QzStringBuffer string;
    int const count = reader.ReadPropertyName("Records") ? reader.BeginArray() : 0;
    for (int i = 0; i < count; ++i) {
        reader.BeginObject();
        reader.ReadPropertyName("Name");
        reader.ReadString(&string);
        sums.text_bytes += static_cast<LtNat64>(string.GetLength());
        reader.ReadPropertyName("Id");
        sums.integers += static_cast<LtNat64>(reader.ReadInteger());
        reader.ReadPropertyName("Weight");
        sums.numbers += reader.ReadDouble();
        reader.ReadPropertyName("Visible");
        sums.integers += reader.ReadBoolean() ? 1u : 0u;
        reader.ReadPropertyName("Position");
        double position[3];
        reader.Read(position);
        sums.numbers += position[0] + position[1] + position[2];
        reader.ReadPropertyName("Serial");
        sums.integers += reader.ReadNat64AsString();
        reader.ReadPropertyName("Tags");
        int const tags = reader.BeginArray();
        for (int t = 0; t < tags; ++t) {
            reader.ReadString(&string);
            sums.text_bytes += static_cast<LtNat64>(string.GetLength());
        }
        reader.EndArray();
        reader.EndObject();
    }
    reader.EndArray();
    reader.EndObject();
    if (!reader.EndRead()) {
        std::fprintf(stderr, "qzutil_json_bench: the read stream failed\n");
        std::exit(1);
    }
    return sums;
}

// --- cJSON directly ---

static std::size_t WriteWithCJson(std::vector<Record> const &records)
{
    cJSON *root = cJSON_CreateObject();
    cJSON_AddItemToObject(root, "Type", cJSON_CreateString("Bench"));
    cJSON_AddItemToObject(root, "Version", cJSON_CreateNumber(1));
    cJSON *array = cJSON_CreateArray();
    cJSON_AddItemToObject(root, "Records", array);
    char serial[24];
    for (Record const &record : records) {
        cJSON *object = cJSON_CreateObject();
        cJSON_AddItemToArray(array, object);
        cJSON_AddItemToObject(object, "Name", cJSON_CreateString(record.name.c_str()));
        cJSON_AddItemToObject(object, "Id", cJSON_CreateNumber(record.id));
        cJSON_AddItemToObject(object, "Weight", cJSON_CreateNumber(record.weight));
        cJSON_AddItemToObject(object, "Visible", cJSON_CreateBool(record.is_visible));
        cJSON_AddItemToObject(object, "Position", cJSON_CreateDoubleArray(record.position, 3));
        std::snprintf(serial, sizeof serial, "%" PRIu64, record.serial);
        cJSON_AddItemToObject(object, "Serial", cJSON_CreateString(serial));
        cJSON *tags = cJSON_CreateArray();
        cJSON_AddItemToObject(object, "Tags", tags);
        for (std::string const &tag : record.tags)
            cJSON_AddItemToArray(tags, cJSON_CreateString(tag.c_str()));
    }
    char *text = cJSON_PrintUnformatted(root);
    std::size_t const length = text != nullptr ? std::strlen(text) : 0;
    cJSON_free(text);
    cJSON_Delete(root);
    return length;
}

static ReadSums ReadWithCJson(char const *text)
{
    ReadSums sums;
    cJSON *root = cJSON_Parse(text);
    cJSON const *records = cJSON_GetObjectItem(root, "Records");
    for (cJSON const *record = records != nullptr ? records->child : nullptr; record != nullptr;
         record = record->next) {
        char const *name = cJSON_GetStringValue(cJSON_GetObjectItem(record, "Name"));
        sums.text_bytes += name != nullptr ? std::strlen(name) : 0;
        sums.integers += static_cast<LtNat64>(cJSON_GetObjectItem(record, "Id")->valueint);
        sums.numbers += cJSON_GetNumberValue(cJSON_GetObjectItem(record, "Weight"));
        sums.integers += cJSON_IsTrue(cJSON_GetObjectItem(record, "Visible")) ? 1u : 0u;
        cJSON const *position = cJSON_GetObjectItem(record, "Position");
        double point_sum = 0.0;
        for (cJSON const *value = position->child; value != nullptr; value = value->next)
            point_sum += value->valuedouble;
        sums.numbers += point_sum;
        char const *serial = cJSON_GetStringValue(cJSON_GetObjectItem(record, "Serial"));
        sums.integers += serial != nullptr ? std::strtoull(serial, nullptr, 10) : 0;
        cJSON const *tags = cJSON_GetObjectItem(record, "Tags");
        for (cJSON const *tag = tags->child; tag != nullptr; tag = tag->next)
            sums.text_bytes += std::strlen(tag->valuestring);
    }
    cJSON_Delete(root);
    return sums;
}

// --- Timing ---

template <typename Work>
static double MillisecondsOf(Work const &work)
{
    Clock::time_point const start = Clock::now();
    work();
    std::chrono::duration<double, std::milli> const elapsed = Clock::now() - start;
    return elapsed.count();
}

static double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

static bool Report(char const *what, std::vector<double> const &streams,
                   std::vector<double> const &cjson)
{
    double const streams_ms = Median(streams);
    double const cjson_ms = Median(cjson);
    double const ratio = streams_ms / cjson_ms;
    bool const is_met = ratio <= kMaxRatio;
    std::printf("%-6s %10.1f %10.1f %8.2fx  %s\n", what, streams_ms, cjson_ms, ratio,
                is_met ? "met" : "MISSED");
    return is_met;
}

int main()
{
    QzJsonStream::Initialise();
    std::vector<Record> const records = MakeRecords();
    QzStringBuffer text;
    std::size_t const text_bytes = WriteWithStreams(records, &text);  // also the warm-up
    std::size_t const cjson_bytes = WriteWithCJson(records);
    ReadSums const stream_sums = ReadWithStreams(text.GetString());
    ReadSums const cjson_sums = ReadWithCJson(text.GetString());
    if (!(stream_sums == cjson_sums)) {
        std::fprintf(stderr, "qzutil_json_bench: the two readers read different values\n");
        return 1;
    }
    std::printf("Document: %d records, %.1f MB as the streams write it, %.1f MB as cJSON "
                "prints it\n",
                kRecords, static_cast<double>(text_bytes) / 1e6,
                static_cast<double>(cjson_bytes) / 1e6);

    std::vector<double> write_streams, write_cjson, read_streams, read_cjson;
    for (int run = 0; run < kTimedRuns; ++run) {
        write_streams.push_back(MillisecondsOf([&] {
            QzStringBuffer out;
            (void)WriteWithStreams(records, &out);
        }));
        write_cjson.push_back(MillisecondsOf([&] { (void)WriteWithCJson(records); }));
        read_streams.push_back(MillisecondsOf([&] { (void)ReadWithStreams(text.GetString()); }));
        read_cjson.push_back(MillisecondsOf([&] { (void)ReadWithCJson(text.GetString()); }));
    }
    std::printf("\nms, median of %d runs       streams      cJSON    ratio  target %.1fx\n",
                kTimedRuns, kMaxRatio);
    bool const is_write_met = Report("write", write_streams, write_cjson);
    bool const is_read_met = Report("read", read_streams, read_cjson);
    QzJsonStream::Terminate();
    return is_write_met && is_read_met ? 0 : 2;
}
