#include <ferrotip/ferrotip.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "module/MethodTable.h"

namespace {

struct ExpectedRow {
    int category, maxGapMs, before, after;
    const char* name;
    const char* description;
};

const ExpectedRow expectedRows[] = {
    {0, 10000, 1, 1, "Linear Interpolation",
     "Interpolate between the first and the last selected sample with a simple straight line"},
    {16, 1, 10, 10, "Optimal Small Clicks",
     "Interpolate in a mathematical optimal sense, but only for clicks smaller than 1ms"},
    {17, 3, 50, 50, "Normal Clicks",
     "Interpolate in an optimal sense, but only for clicks smaller than 3ms"},
    {32, 250, 4000, 4000, "Waveform Replacment",
     "Replace the corrupted samples by the best fit of neighbourhood samples, Looking in both direction up to 4s"},
    {33, 250, 500, 500, "Waveform Replacment Near",
     "Replace the corrupted samples by the best fit of neighbourhood samples, Looking in both direction up to 500ms"},
    {34, 250, 6000, 6000, "Waveform Replacment Left",
     "Replace the corrupted samples by the best fit of leftside neighbourhood samples, Looking in both direction up to 6s"},
    {35, 250, 6000, 6000, "Waveform Replacment Right",
     "Replace the corrupted samples by the best fit of rightside neighbourhood samples, Looking in both direction up to 6s"},
};

MethodDescription recordFor(int index)
{
    MethodDescription record;
    std::memset(&record, 0xAB, sizeof record);
    record.index = index;
    getMethodDescription(&record);
    return record;
}

TEST(MethodTable, EveryRowByteForByte)
{
    for (int index = 0; index < FERROTIP_METHOD_COUNT; ++index) {
        SCOPED_TRACE(index);
        const MethodDescription record = recordFor(index);
        const ExpectedRow& row = expectedRows[index];
        EXPECT_STREQ(record.name, row.name);
        EXPECT_STREQ(record.description, row.description);
        EXPECT_EQ(record.index, index);
        EXPECT_EQ(record.category, row.category);
        EXPECT_EQ(record.maxGapMs, row.maxGapMs);
        EXPECT_EQ(record.contextBeforeMs, row.before);
        EXPECT_EQ(record.contextAfterMs, row.after);
        for (unsigned char byte : record.reserved) EXPECT_EQ(byte, 0);
    }
}

TEST(MethodTable, IndexSixIsTheRightSideReplacement)
{
    const MethodDescription record = recordFor(6);
    EXPECT_STREQ(record.name, "Waveform Replacment Right");
    EXPECT_EQ(record.category, 35);
}

TEST(MethodTable, IndexSevenOrMoreLeavesTheRecordAsTheHostFilledIt)
{
    for (int index : {7, 8, 1000}) {
        MethodDescription record;
        std::memset(&record, 0x5C, sizeof record);
        record.index = index;
        MethodDescription before = record;
        getMethodDescription(&record);
        EXPECT_EQ(std::memcmp(&record, &before, sizeof record), 0);
    }
}

TEST(MethodTable, HostEnumeratesBySettingTheNameToNullFirst)
{
    int rows = 0;
    for (int index = 0;; ++index) {
        MethodDescription record{};
        record.name = nullptr;
        record.index = index;
        getMethodDescription(&record);
        if (record.name == nullptr) break;
        ++rows;
    }
    EXPECT_EQ(rows, 7);
}

TEST(MethodTable, TextPointersStayTheSameAcrossCalls)
{
    EXPECT_EQ(recordFor(3).name, recordFor(3).name);
}

TEST(Init, ChangesNothingElse)
{
    const MethodDescription before = recordFor(2);
    int host = 0;
    for (int i = 0; i < 3; ++i) init(nullptr, &host);
    init(&host, nullptr);
    const MethodDescription after = recordFor(2);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    float x[4] = {0.0f, 9.0f, 9.0f, 3.0f};
    float* channels[] = {x};
    int32_t left = -5, right = -5;
    EXPECT_EQ(process(nullptr, channels, 1, 44100, 1, 2, 0, &left, &right), 0);
    EXPECT_EQ(x[1], 1.0f);
}

TEST(DerivedCounts, ValuesAt44100)
{
    const int context[] = {88, 880, 4400, 352000, 44000, 528000, 528000};
    const int maxGap[] = {440000, 44, 132, 11000, 11000, 11000, 11000};
    for (int method = 0; method < methodCount; ++method) {
        SCOPED_TRACE(method);
        const MethodCounts counts = deriveCounts(methodRow(method), 44100, 100);
        EXPECT_EQ(counts.samplesPerMs, 44);
        EXPECT_EQ(counts.contextLength, 100 + context[method]);
        EXPECT_EQ(counts.maxGapSamples, maxGap[method]);
    }
}

TEST(DerivedCounts, SamplesPerMillisecondTruncates)
{
    const std::pair<int, int> rates[] = {{44100, 44}, {48000, 48}, {11025, 11}, {999, 0},
                                         {1000, 1}, {96000, 96}, {192000, 192}};
    for (const auto& [rate, perMs] : rates) {
        SCOPED_TRACE(rate);
        const MethodCounts counts = deriveCounts(methodRow(2), rate, 7);
        EXPECT_EQ(counts.samplesPerMs, perMs);
        EXPECT_EQ(counts.contextLength, 7 + 100 * perMs);  // negative factor: never one more
        EXPECT_EQ(counts.maxGapSamples, 3 * perMs);
    }
}

}  // namespace
