#include <ferrotip/ferrotip.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ar/ClassicRand.h"
#include "ar/LsarInterp.h"

namespace {

struct Channels {
    Channels(int count, int length, float base = 0.0f) : data(count, std::vector<float>(length))
    {
        for (int c = 0; c < count; ++c)
            for (int i = 0; i < length; ++i)
                data[c][i] = base + 0.4f * std::sin(0.05f * i + c) + 0.2f * std::sin(0.31f * i);
        for (auto& row : data) pointers.push_back(row.data());
    }
    float** get() { return pointers.data(); }
    std::vector<std::vector<float>> data;
    std::vector<float*> pointers;
};

struct Fades {
    int32_t left = -7, right = -7;
};

int32_t run(Channels& ch, int channelCount, int rate, int start, int length, int method, Fades& f)
{
    return process(nullptr, ch.get(), channelCount, rate, start, length, method, &f.left, &f.right);
}

TEST(Process, MethodPastTheTableReturnsZeroAndTouchesNothing)
{
    Channels ch(2, 100);
    const auto before = ch.data;
    Fades f;
    EXPECT_EQ(run(ch, 2, 44100, 50, 10, 7, f), 0);
    EXPECT_EQ(run(ch, 2, 44100, 50, 10, 1000, f), 0);
    EXPECT_EQ(f.left, -7);
    EXPECT_EQ(f.right, -7);
    EXPECT_EQ(ch.data, before);
}

TEST(Process, NegativeMethodReturnsMinusOneWithZeroFades)
{
    Channels ch(1, 100);
    const auto before = ch.data;
    Fades f;
    EXPECT_EQ(run(ch, 1, 44100, 50, 10, -1, f), -1);
    EXPECT_EQ(f.left, 0);
    EXPECT_EQ(f.right, 0);
    EXPECT_EQ(ch.data, before);
}

TEST(StraightLine, PassesThroughTheTwoIntactNeighbours)
{
    Channels ch(2, 100);
    Fades f;
    EXPECT_EQ(run(ch, 2, 44100, 40, 9, 0, f), 0);
    EXPECT_EQ(f.left, 0);
    EXPECT_EQ(f.right, 0);
    for (int c = 0; c < 2; ++c) {
        const float left = ch.data[c][39], right = ch.data[c][49];
        const float slope = (right - left) / (9.0f + 1.0f);
        for (int i = 1; i <= 9; ++i) EXPECT_EQ(ch.data[c][39 + i], static_cast<float>(i) * slope + left);
    }
}

TEST(StraightLine, NoChannelsTouchesNothing)
{
    Channels ch(1, 20);
    const auto before = ch.data;
    Fades f;
    EXPECT_EQ(run(ch, 0, 44100, 5, 5, 0, f), 0);
    EXPECT_EQ(run(ch, -3, 44100, 5, 5, 0, f), 0);
    EXPECT_EQ(ch.data, before);
}

TEST(StraightLine, ZeroLengthWritesNothing)
{
    Channels ch(1, 20);
    const auto before = ch.data;
    Fades f;
    EXPECT_EQ(run(ch, 1, 44100, 5, 0, 0, f), 0);
    EXPECT_EQ(ch.data, before);
}

TEST(StraightLine, OneSampleIsTheMidpoint)
{
    float x[] = {1.0f, 99.0f, 4.0f};
    float* channels[] = {x};
    int32_t l, r;
    EXPECT_EQ(process(nullptr, channels, 1, 44100, 1, 1, 0, &l, &r), 0);
    EXPECT_EQ(x[1], 1.0f + (4.0f - 1.0f) / 2.0f);
}

TEST(StraightLine, EqualNeighboursGiveAConstant)
{
    std::vector<float> x(12, 5.0f);
    x[0] = 0.25f;
    x[11] = 0.25f;
    float* channels[] = {x.data()};
    int32_t l, r;
    process(nullptr, channels, 1, 44100, 1, 10, 0, &l, &r);
    for (int i = 1; i <= 10; ++i) EXPECT_EQ(x[i], 0.25f);
}

TEST(StraightLine, NoLimitOnTheLength)
{
    std::vector<float> x(600000, 1.0f);
    x.front() = 0.0f;
    x.back() = 1.0f;
    float* channels[] = {x.data()};
    int32_t l, r;
    EXPECT_EQ(process(nullptr, channels, 1, 44100, 1, 599998, 0, &l, &r), 0);  // > 10000 ms
    EXPECT_NEAR(x[300000], 0.5f, 1e-3);
}

TEST(ClickMethods, NoChannelsReturnZero)
{
    Channels ch(1, 10);
    Fades f;
    EXPECT_EQ(run(ch, 0, 44100, 5, 2, 1, f), 0);
    EXPECT_EQ(run(ch, 0, 44100, 5, 2, 2, f), 0);
    EXPECT_EQ(f.left, 0);
    EXPECT_EQ(f.right, 0);
}

TEST(ClickMethods, RateBelowOneKilohertzRefusesEveryGap)
{
    Channels ch(2, 100);
    const auto before = ch.data;
    Fades f;
    EXPECT_EQ(run(ch, 2, 999, 50, 1, 1, f), 1);
    EXPECT_EQ(run(ch, 2, 999, 50, 1, 2, f), 1);
    EXPECT_EQ(f.left, 0);
    EXPECT_EQ(ch.data, before);
}

TEST(ClickMethods, LimitIsInclusive)
{
    // 44 samples for method 1 and 132 for method 2 at 44.1 kHz.
    for (const auto& [method, limit] : {std::pair{1, 44}, std::pair{2, 132}}) {
        SCOPED_TRACE(method);
        Channels ch(2, 8000);
        const auto before = ch.data;
        Fades f;
        EXPECT_EQ(run(ch, 2, 44100, 4000, limit + 1, method, f), 1);
        EXPECT_EQ(ch.data, before);
        EXPECT_EQ(run(ch, 2, 44100, 4000, limit, method, f), 0);
        EXPECT_NE(ch.data, before);
    }
}

// Method 1 is ten passes with the channel loop inside, each on a fresh object.
TEST(ClickMethods, SmallClicksRunTenPassesChannelByChannel)
{
    Channels viaProcess(2, 8000), byHand(2, 8000);
    Fades f;
    ferrotip::srand(1);
    ASSERT_EQ(run(viaProcess, 2, 44100, 4000, 30, 1, f), 0);
    ferrotip::srand(1);
    for (int pass = 0; pass < 10; ++pass)
        for (int c = 0; c < 2; ++c) LsarInterp(30 + 880, 44).interpolate(byHand.get()[c], 4000, 30, 1);
    EXPECT_EQ(viaProcess.data, byHand.data);
}

TEST(ClickMethods, NormalClicksRunOnePass)
{
    Channels viaProcess(3, 12000), byHand(3, 12000);
    Fades f;
    ferrotip::srand(5);
    ASSERT_EQ(run(viaProcess, 3, 44100, 6000, 100, 2, f), 0);
    ferrotip::srand(5);
    for (int c = 0; c < 3; ++c) LsarInterp(100 + 4400, 132).interpolate(byHand.get()[c], 6000, 100, 2);
    EXPECT_EQ(viaProcess.data, byHand.data);
}

TEST(ClickMethods, OneSampleClickBecomesSilenceOnEveryPass)
{
    Channels ch(1, 4000);
    Fades f;
    EXPECT_EQ(run(ch, 1, 44100, 2000, 1, 1, f), 0);
    EXPECT_EQ(ch.data[0][2000], 0.0f);
}

}  // namespace
