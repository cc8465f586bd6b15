// Span lists: every format reads back what it wrote, and bad lines are named.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CliError.h"
#include "SpanList.h"

namespace {

std::vector<SampleSpan> sampleSpans()
{
    return {{0, 0, 0, ""}, {1, 44099, 44100, "click"}, {SampleSpan::allChannels, 123456789, 123456999, ""}};
}

void expectSameSpans(const std::vector<SampleSpan>& got, const std::vector<SampleSpan>& want, bool withChannels)
{
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(got[i].first, want[i].first) << i;
        EXPECT_EQ(got[i].last, want[i].last) << i;
        if (withChannels) {
            EXPECT_EQ(got[i].channel, want[i].channel) << i;
        }
    }
}

TEST(SpanList, FormatFollowsTheExtension)
{
    EXPECT_EQ(spanFormatFor("a/b.TXT"), SpanFormat::labels);
    EXPECT_EQ(spanFormatFor("x.csv"), SpanFormat::csv);
    EXPECT_EQ(spanFormatFor("x.json"), SpanFormat::json);
    EXPECT_THROW(spanFormatFor("x.wav"), CliError);
}

TEST(SpanList, EveryFormatReadsBackWhatItWroteAtEveryRate)
{
    for (int rate : {1, 8000, 44100, 48000, 192000, 384000}) {
        for (SpanFormat format : {SpanFormat::labels, SpanFormat::csv, SpanFormat::json}) {
            const std::string text = formatSpans(sampleSpans(), rate, format);
            expectSameSpans(parseSpans(text, "list", rate, format), sampleSpans(), format != SpanFormat::labels);
        }
    }
}

TEST(SpanList, LabelTrackIsSecondsTabSecondsTabLabel)
{
    const std::string text = formatSpans({{0, 44100, 88199, ""}}, 44100, SpanFormat::labels);
    EXPECT_EQ(text, "1.000000\t2.000000\tchannel 1\n");
}

TEST(SpanList, ReadsSecondsOrSamplesAndSkipsEditorRows)
{
    const auto labels = parseSpans("0.5\t0.75\tgap\n\\\t100\t200\n\n1\t1.001\n", "l.txt", 1000, SpanFormat::labels);
    expectSameSpans(labels, {{-1, 500, 749, ""}, {-1, 1000, 1000, ""}}, true);
    EXPECT_EQ(labels[0].label, "gap");
    const auto csv = parseSpans("start,end\n0.5,0.75\n", "l.csv", 1000, SpanFormat::csv);
    expectSameSpans(csv, {{-1, 500, 749, ""}}, true);
    const auto samples = parseSpans("first,last,channel\n10,20,2\n", "l.csv", 1000, SpanFormat::csv);
    expectSameSpans(samples, {{1, 10, 20, ""}}, true);
    const auto json = parseSpans(R"([{"start": 0.5, "end": 0.75}, {"first": 3, "last": 4, "channel": 0}])", "l.json",
                                 1000, SpanFormat::json);
    expectSameSpans(json, {{-1, 500, 749, ""}, {-1, 3, 4, ""}}, true);
}

TEST(SpanList, ErrorsNameTheLine)
{
    const auto messageOf = [](const std::string& text, SpanFormat format) {
        try {
            parseSpans(text, "r", 1000, format);
        } catch (const CliError& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    EXPECT_NE(messageOf("0.1\t0.2\n0.5\tx\n", SpanFormat::labels).find("line 2"), std::string::npos);
    EXPECT_NE(messageOf("0.5\t0.4\n", SpanFormat::labels).find("not after the start"), std::string::npos);
    EXPECT_NE(messageOf("a,b\n1,2\n", SpanFormat::csv).find("header"), std::string::npos);
    EXPECT_NE(messageOf("start,end\n1\n", SpanFormat::csv).find("line 2"), std::string::npos);
    EXPECT_NE(messageOf("[{\"start\": 1}]", SpanFormat::json).find("entry 1"), std::string::npos);
    EXPECT_NE(messageOf("{", SpanFormat::json).find("not valid JSON"), std::string::npos);
    EXPECT_NE(messageOf("-1\t2\n", SpanFormat::labels).find("line 1"), std::string::npos);
    EXPECT_NE(messageOf("", SpanFormat::csv).find("is empty"), std::string::npos);
    EXPECT_NE(messageOf("{\"sample_rate\": 96000, \"spans\": [{\"first\": 1, \"last\": 2}]}", SpanFormat::json)
                  .find("96000 Hz"),
              std::string::npos);
}

// Spreadsheets save "CSV UTF-8" with a byte-order mark and quoted headers.
TEST(SpanList, ReadsAByteOrderMarkAndQuotedFields)
{
    const std::string mark = "\xEF\xBB\xBF";
    expectSameSpans(parseSpans(mark + "channel,first,last\n2,10,20\n", "l.csv", 1000, SpanFormat::csv),
                    {{1, 10, 20, ""}}, true);
    expectSameSpans(parseSpans(mark + "\"start\",\"end\"\n\"0.5\",\"0.75\"\n", "l.csv", 1000, SpanFormat::csv),
                    {{-1, 500, 749, ""}}, true);
    expectSameSpans(parseSpans(mark + "1.0\t1.5\tx\n", "l.txt", 1000, SpanFormat::labels), {{-1, 1000, 1499, ""}},
                    true);
    expectSameSpans(parseSpans(mark + "[{\"first\": 3, \"last\": 4}]", "l.json", 1000, SpanFormat::json),
                    {{-1, 3, 4, ""}}, true);
}

// A report of a 96 kHz recording read for the 44.1 kHz version of it: the seconds hold.
TEST(SpanList, AListMadeAtAnotherRateIsReadByItsSeconds)
{
    const std::vector<SampleSpan> at96k = {{1, 48000, 48095, "dropout"}};
    for (SpanFormat format : {SpanFormat::csv, SpanFormat::json}) {
        const std::string text = formatSpans(at96k, 96000, format);
        expectSameSpans(parseSpans(text, "list", 96000, format), at96k, true);
        expectSameSpans(parseSpans(text, "list", 44100, format), {{1, 22050, 22093, ""}}, true);
    }
}

}  // namespace
