// `ferrotip scan` and `ferrotip repair --regions / --method inpaint|auto` run as a
// user would, on a 16-bit file made from a real recording with dropouts in it.
#include <gtest/gtest.h>

#include <sndfile.h>
#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "inpaint/DropoutMaterial.h"
#include "inpaint/GapFiller.h"
#include "support/CommandRunner.h"
#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

using testsupport::ferrotip;

class DropoutCommand : public testing::Test {
protected:
    std::string path(const std::string& name) const { return dir / name; }

    // 6 s of music (or a synthetic tone without it), with three dropouts: 10 ms on both
    // channels, 3 ms on the second, 120 ms on both.
    void writeDamaged(const std::string& name)
    {
        auto music = inpaint_test::loadMusic(1, 6.0);
        const int frames = 6 * rate;
        clean.assign(2 * frames, 0);
        for (int f = 0; f < frames; ++f)
            for (int c = 0; c < 2; ++c) {
                const double v = music.empty() ? 0.4 * std::sin(0.03 * f + c) : music[0].channels[c][f];
                clean[2 * f + c] = static_cast<short>(std::lround(std::clamp(v, -1.0, 1.0) * 32767));
            }
        damaged = clean;
        for (const auto& d : dropouts)
            for (int f = d.first; f <= d.last; ++f)
                for (int c = 0; c < 2; ++c)
                    if (d.channel < 0 || d.channel == c) damaged[2 * f + c] = 0;
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        SNDFILE* file = sf_open(path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr);
        sf_writef_short(file, damaged.data(), frames);
        sf_close(file);
    }

    struct Span {
        int channel, first, last;
    };
    static constexpr int rate = 44100;
    const std::vector<Span> dropouts = {{-1, 44100, 44100 + 440}, {1, 88200, 88200 + 131}, {-1, 150000, 150000 + 5291}};
    std::vector<short> clean, damaged;
    testsupport::TempDir dir{"ferrotip-dropout"};
};

// The 16-bit samples of a file (read in the full 32-bit scale).
std::vector<short> readShorts(const std::string& path)
{
    const auto file = testsupport::readSoundFile<int>(path);
    std::vector<short> samples(file.samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<short>(file.samples[i] >> 16);
    return samples;
}

TEST_F(DropoutCommand, ScanThenRepairMendsOnlyTheDropouts)
{
    writeDamaged("in.wav");
    const auto scan = ferrotip("scan " + path("in.wav") + " --report " + path("found.csv"));
    ASSERT_EQ(scan.status, 0) << scan.output;
    EXPECT_NE(scan.output.find("3 dropouts found"), std::string::npos) << scan.output;
    const auto repair = ferrotip("repair " + path("in.wav") + " " + path("out.wav") + " --regions " + path("found.csv"));
    ASSERT_EQ(repair.status, 0) << repair.output;
    const std::vector<short> out = readShorts(path("out.wav"));
    ASSERT_EQ(out.size(), damaged.size());
    std::vector<bool> inDropout(damaged.size(), false);
    for (const auto& d : dropouts)
        for (int f = d.first; f <= d.last; ++f)
            for (int c = 0; c < 2; ++c)
                if (d.channel < 0 || d.channel == c) inDropout[2 * f + c] = true;
    for (std::size_t i = 0; i < damaged.size(); ++i)
        if (!inDropout[i]) {
            ASSERT_EQ(out[i], damaged[i]) << "sample " << i << " outside the dropouts changed";
        }
    for (const auto& d : dropouts) {
        double signal = 0.0, error = 0.0;
        for (int f = d.first; f <= d.last; ++f)
            for (int c = 0; c < 2; ++c)
                if (d.channel < 0 || d.channel == c) {
                    const std::size_t i = 2 * f + c;
                    signal += double(clean[i]) * clean[i];
                    error += (double(out[i]) - clean[i]) * (double(out[i]) - clean[i]);
                }
        std::printf("dropout at %d: %.1f dB\n", d.first, 10.0 * std::log10(signal / error));
        // The figures belong to the quality test; here the short, two-channel one
        // shows the filler ran (27.6 dB when this was written).
        if (d.first == dropouts[0].first) {
            EXPECT_GT(10.0 * std::log10(signal / error), 15.0);
        }
    }
    const auto again = ferrotip("scan " + path("out.wav"));
    EXPECT_NE(again.output.find("0 dropouts found"), std::string::npos) << again.output;
}

TEST_F(DropoutCommand, AutoIsTheDefaultAndInpaintTakesAQuarterSecond)
{
    writeDamaged("in.wav");
    const auto byDefault = ferrotip("repair " + path("in.wav") + " " + path("a.wav") + " --start 150000 --length 250ms");
    EXPECT_EQ(byDefault.status, 0) << byDefault.output;
    EXPECT_NE(byDefault.output.find("\"inpaint\""), std::string::npos) << byDefault.output;
    const auto inpaint = ferrotip("repair " + path("in.wav") + " " + path("b.wav") +
                                  " --start 1s --length 10ms --method inpaint");
    EXPECT_EQ(inpaint.status, 0) << inpaint.output;
}

TEST_F(DropoutCommand, BadRegionsFailBeforeAnythingIsWritten)
{
    writeDamaged("in.wav");
    std::ofstream(path("long.txt")) << "1.0\t1.1\tfine\n2.0\t2.3\ttoo long\n";
    const auto tooLong = ferrotip("repair " + path("in.wav") + " " + path("out.wav") + " --regions " + path("long.txt"));
    EXPECT_EQ(tooLong.status, 1);
    EXPECT_NE(tooLong.output.find("region 2"), std::string::npos) << tooLong.output;
    EXPECT_NE(tooLong.output.find("250 ms"), std::string::npos) << tooLong.output;
    // With a method given, its own limit, and the region still named.
    const auto tooLongForMethod =
        ferrotip("repair " + path("in.wav") + " " + path("out.wav") + " --method 1 --regions " + path("long.txt"));
    EXPECT_EQ(tooLongForMethod.status, 1);
    EXPECT_NE(tooLongForMethod.output.find("region 1 of"), std::string::npos) << tooLongForMethod.output;
    EXPECT_NE(tooLongForMethod.output.find("1 ms"), std::string::npos) << tooLongForMethod.output;
    std::ofstream(path("outside.txt")) << "5.9\t6.1\tpast the end\n";
    const auto outside = ferrotip("repair " + path("in.wav") + " " + path("out.wav") + " --regions " + path("outside.txt"));
    EXPECT_EQ(outside.status, 1);
    EXPECT_NE(outside.output.find("region 1"), std::string::npos) << outside.output;
    EXPECT_FALSE(fs::exists(path("out.wav")));
    const auto same = ferrotip("repair " + path("in.wav") + " " + path("in.wav") + " --start 1s --length 5ms");
    EXPECT_NE(same.status, 0);
    EXPECT_EQ(readShorts(path("in.wav")), damaged);
}

TEST_F(DropoutCommand, ScanRefusesAReportThatWouldReplaceItsInput)
{
    // The sound file reader goes by the header, so audio may carry a report's name.
    writeDamaged("take.csv");
    const auto outcome = ferrotip("scan " + path("take.csv") + " --report " + path("./take.csv"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.output.find("--report"), std::string::npos) << outcome.output;
    EXPECT_EQ(readShorts(path("take.csv")), damaged);
}

TEST_F(DropoutCommand, OverlappingRegionsAreMerged)
{
    writeDamaged("in.wav");
    std::ofstream(path("r.txt")) << "1.0\t1.01\ta\n1.01\t1.02\tb\n1.015\t1.03\tc\n";
    const auto run = ferrotip("repair " + path("in.wav") + " " + path("out.wav") + " --regions " + path("r.txt"));
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("repaired 1323 samples at frame 44100"), std::string::npos) << run.output;
}

// Regions for one channel and for all channels that meet are joined channel by channel:
// the second channel changes only where a region names it.
TEST_F(DropoutCommand, ARegionForOneChannelNeverSpreadsToAnother)
{
    writeDamaged("in.wav");
    std::ofstream(path("r.csv")) << "channel,first,last\n1,44100,44200\n2,44150,44250\n0,44190,44300\n"
                                 << "1,60000,60010\n0,60011,60020\n";
    const auto run = ferrotip("repair " + path("in.wav") + " " + path("out.wav") + " --regions " + path("r.csv"));
    ASSERT_EQ(run.status, 0) << run.output;
    const std::vector<short> out = readShorts(path("out.wav"));
    const auto changedOn = [&](int channel, int first, int last) {
        for (int f = first; f <= last; ++f)
            if (out[2 * f + channel] != damaged[2 * f + channel]) return true;
        return false;
    };
    EXPECT_FALSE(changedOn(1, 44000, 44149));
    EXPECT_FALSE(changedOn(1, 59900, 60010));
    EXPECT_TRUE(changedOn(0, 44100, 44300));
    EXPECT_TRUE(changedOn(1, 44150, 44300));
    EXPECT_NE(run.output.find("201 samples at frame 44100 of channel 1"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("151 samples at frame 44150 of channel 2"), std::string::npos) << run.output;
}

}  // namespace

namespace {

// The gap filler's fill of a region of the 16-bit interleaved samples, in 16-bit steps,
// from a window with silence past the file's ends; told where the file ends or not.
std::vector<long> libraryFill(const std::vector<short>& samples, int first, int length, bool toldWhereItEnds)
{
    constexpr int rate = 44100;
    const int frames = static_cast<int>(samples.size() / 2);
    GapFiller filler(rate, 250 * rate / 1000, 2);
    const int context = filler.contextLength(length);
    std::vector<std::vector<float>> window(2, std::vector<float>(2 * context + length, 0.0f));
    for (int i = 0; i < static_cast<int>(window[0].size()); ++i) {
        const int f = first - context + i;
        if (f >= 0 && f < frames)
            for (int c = 0; c < 2; ++c) window[c][i] = samples[2 * f + c] / 32768.0f;
    }
    float* pointers[2] = {window[0].data(), window[1].data()};
    if (toldWhereItEnds)
        filler.fill(pointers, 2, context, length, std::min(context, first),
                    std::min(context, frames - first - length));
    else
        filler.fill(pointers, 2, context, length);
    std::vector<long> fill;
    for (int i = 0; i < length; ++i)
        for (int c = 0; c < 2; ++c) fill.push_back(std::lround(window[c][context + i] * 32768.0));
    return fill;
}

long largestDifference(const std::vector<long>& fill, const std::vector<short>& out, int first)
{
    long most = 0;
    for (std::size_t i = 0; i < fill.size(); ++i) most = std::max(most, std::abs(fill[i] - out[2 * first + i]));
    return most;
}

}  // namespace

// A dropout a few samples from either end of the file is filled from the audio there
// is, not from the silence past the end: the command gives the filler's fill told
// where the file ends (which differs by far from the one taking silence past it).
TEST_F(DropoutCommand, DropoutsNearTheFilesEndsAreFilledFromTheAudioThereIs)
{
    writeDamaged("in.wav");
    const int frames = 6 * rate, gap = rate / 50;
    for (const int first : {frames - 100 - gap, 50}) {
        const std::string region = " --start " + std::to_string(first) + " --length " + std::to_string(gap);
        const auto run = ferrotip("repair " + path("in.wav") + " " + path("out.wav") + region);
        ASSERT_EQ(run.status, 0) << run.output;
        const std::vector<short> out = readShorts(path("out.wav"));
        EXPECT_LE(largestDifference(libraryFill(damaged, first, gap, true), out, first), 1) << first;
        EXPECT_GT(largestDifference(libraryFill(damaged, first, gap, false), out, first), 100) << first;
    }
}
