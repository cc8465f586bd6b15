#include "declip/ClipLevelFinder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace {

constexpr int lowestExponent = -24;            // frexp's exponent of the lowest octave, 2^-25 up; below lands in bin 0
constexpr int highestExponent = 24;            // of the highest octave, up to 2^24
constexpr int octaves = highestExponent - lowestExponent + 1;
constexpr float rangeTop = static_cast<float>(1 << highestExponent);
constexpr int narrowBand = 24;                 // about 1% of magnitude
constexpr int searchBins = ClipLevelFinder::binsPerOctave / 2;  // half an octave
constexpr int outlierShift = 10;               // about one sample in a thousand
constexpr std::int64_t minimumClipped = 16;
constexpr std::int64_t humpOverBelow = 4;      // hump density over the density below it
constexpr int referenceOffset = ClipLevelFinder::binsPerOctave / 4;  // about 16% below the level
constexpr int noiseMargin = 3;                 // standard deviations of a band's count over the valley's
constexpr std::int64_t flankShare = 16;        // a hump's flank: its excess over the background, of the peak's
constexpr int valuesWeighed = 4;               // values just below a pile it is weighed against
constexpr std::int64_t plateauOverValue = 4;   // a pile one value holds over the heaviest value below it
constexpr std::int64_t humpOverValue = 16;     // a spread hump over the heaviest value below it

std::int64_t bandCount(const std::vector<std::uint32_t>& histogram, int first, int last)
{
    std::int64_t sum = 0;
    for (int bin = std::max(first, 0); bin < std::min<int>(last, static_cast<int>(histogram.size())); ++bin)
        sum += histogram[bin];
    return sum;
}

// The bin at or above which the highest thousandth of `count` samples lie (one at
// least). A codec's overshoot puts a few samples up to some 60% above the level it
// clipped at; the pile is sought from the highest sample down to half an octave
// below this bin.
int outliersFrom(const std::vector<std::uint32_t>& histogram, int top, std::int64_t count)
{
    const std::int64_t outliers = std::max<std::int64_t>(count >> outlierShift, 1);
    std::int64_t above = 0;
    int bin = top;
    for (; bin > 0; --bin) {
        above += histogram[bin];
        if (above >= outliers) break;
    }
    return bin;
}

// The quantiser's step below `top`, in bins: the closest spacing of the highest
// occupied bins. About one for finely resolved audio; for coarse steps (8-bit,
// mu-law, A-law: a few percent of the value near the top) every step piles up
// samples like a clip level unless bands are at least a step wide.
int quantumBelow(const std::vector<std::uint32_t>& histogram, int top)
{
    constexpr int spacings = 8;
    int closest = std::numeric_limits<int>::max();
    int seen = 0;
    int previous = top;
    for (int bin = top - 1; bin >= std::max(top - searchBins, 0) && seen < spacings; --bin) {
        if (histogram[bin] == 0) continue;
        closest = std::min(closest, previous - bin);
        previous = bin;
        ++seen;
    }
    return seen == 0 ? 1 : closest;
}

// The most samples one value holds among the `valuesWeighed` occupied bins within
// an octave below `bottom` (0 when none lies there).
std::int64_t heaviestValueBelow(const std::vector<std::uint32_t>& histogram, int bottom)
{
    std::uint32_t heaviest = 0;
    const int lowest = std::max(bottom - ClipLevelFinder::binsPerOctave, 1);
    for (int bin = bottom - 1, seen = 0; bin >= lowest && seen < valuesWeighed; --bin) {
        if (histogram[bin] == 0) continue;
        heaviest = std::max(heaviest, histogram[bin]);
        ++seen;
    }
    return heaviest;
}

// A periodic signal repeats the same few values every cycle, so the top of its
// histogram is a comb: where a crest holds only a few values, a band catches a
// pile much denser than the sparse teeth below it. But each value of the cycle
// holds as many samples as the crest's (a quantised crest's top step at most
// about 2.4 times the next), while a clip level holds far more than any one value
// just below it, and a codec spreads it over many values. A pile with no value
// within an octave below it (a square of two levels) was never approached by a
// waveform.
// Only values below `bottom`, the pile's lowest bin, are weighed: a plateau's
// neighbours within a band of it (where dither split it, say) are not.
bool outweighsTheValuesBelow(const std::vector<std::uint32_t>& histogram, int bottom, std::int64_t pile, bool oneValue)
{
    const std::int64_t heaviest = heaviestValueBelow(histogram, bottom);
    return heaviest > 0 && pile >= (oneValue ? plateauOverValue : humpOverValue) * heaviest;
}

// The hump's body: from the first bin of the densest band at half its mean density
// down while the density holds at that. A steady tone's crest thins out below it
// at once; a clip level's hump is judged from here.
int humpBody(const std::vector<std::uint32_t>& histogram, int densest, std::int64_t densestCount, int band)
{
    const std::int64_t halfMean = std::max<std::int64_t>(densestCount / (2 * band), 1);
    int body = densest + band - 1;
    const int end = std::min<int>(densest + band, static_cast<int>(histogram.size()));
    for (int bin = densest; bin < end; ++bin)
        if (histogram[bin] >= halfMean) { body = bin; break; }
    const int step = std::max(band / 4, 1);
    while (body - step >= 0 && bandCount(histogram, body - step, body) >= step * halfMean) body -= step;
    return body;
}

// The typical count of a band over the 16% below `body`: the median of the bands
// that tile it, so that neither a hump's shoulder nor the count's noise (a minimum
// would pick its low tail) shifts it.
std::int64_t backgroundBelow(const std::vector<std::uint32_t>& histogram, int body, int band)
{
    std::array<std::int64_t, referenceOffset / narrowBand> counts{};
    std::size_t tiles = 0;
    for (int top = body; tiles < counts.size() && top - band >= std::max(body - referenceOffset, 0); top -= band)
        counts[tiles++] = bandCount(histogram, top - band, top);
    if (tiles == 0) return 0;
    const auto middle = counts.begin() + static_cast<std::ptrdiff_t>(tiles / 2);
    std::nth_element(counts.begin(), middle, counts.begin() + static_cast<std::ptrdiff_t>(tiles));
    return *middle;
}

// A codec spreads a clip level's pile into a hump over a few percent, with most of
// its spread below the level; restoring helps most from about the hump's lower
// edge. From the hump's body down, at most 16%, while the band below stands out of
// the background under the hump by more than its counting noise and by a
// `flankShare` of the densest band's excess over it: a narrow hump over a dense
// background (high bitrates) keeps its level near the pile, where restoring the
// music's own samples just below it would do harm.
int humpLowerEdge(const std::vector<std::uint32_t>& histogram, int body, std::int64_t densestCount, int band)
{
    const std::int64_t background = backgroundBelow(histogram, body, band);
    const auto noise = static_cast<std::int64_t>(std::sqrt(static_cast<double>(background)));
    const std::int64_t standingOut =
        background + std::max(noiseMargin * noise + 1, (densestCount - background) / flankShare);
    const int step = std::max(band / 4, 1);
    const int lowest = std::max(body - referenceOffset + band, band);
    int edge = body;
    while (edge - step >= lowest && bandCount(histogram, edge - band, edge) > standingOut) edge -= step;
    return edge;
}

}  // namespace

ClipLevelFinder::ClipLevelFinder() { reset(); }

void ClipLevelFinder::reset()
{
    for (Polarity* side : {&positive_, &negative_}) {
        side->histogram.assign(static_cast<std::size_t>(octaves) * binsPerOctave, 0);
        side->count = 0;
        side->beyondRange = 0;
    }
}

int ClipLevelFinder::binOf(float magnitude)
{
    int exponent = 0;
    const double fraction = std::frexp(static_cast<double>(magnitude), &exponent);  // [0.5, 1)
    const int octave = exponent - lowestExponent;
    if (octave < 0) return 0;
    return octave * binsPerOctave + static_cast<int>((fraction - 0.5) * 2.0 * binsPerOctave);
}

float ClipLevelFinder::lowerEdge(int bin)
{
    const int octave = bin / binsPerOctave;
    const double fraction = 0.5 + (bin % binsPerOctave) / (2.0 * binsPerOctave);
    return static_cast<float>(std::ldexp(fraction, octave + lowestExponent));
}

void ClipLevelFinder::add(const float* samples, std::int64_t count)
{
    for (std::int64_t i = 0; i < count; ++i) {
        const float x = samples[i];
        if (!(x != 0.0f) || !std::isfinite(x)) continue;
        Polarity& side = x > 0.0f ? positive_ : negative_;
        ++side.count;
        if (std::fabs(x) >= rangeTop) ++side.beyondRange;
        else ++side.histogram[binOf(std::fabs(x))];
    }
}

float ClipLevelFinder::levelOf(const Polarity& polarity)
{
    const auto& histogram = polarity.histogram;
    int top = static_cast<int>(histogram.size()) - 1;
    while (top > 0 && histogram[top] == 0) --top;
    // Where the histogram ends nothing can be told about a pile.
    if (polarity.count == 0 || top == 0 || polarity.beyondRange > 0) return ClipLevels::none;

    // Bands of about 1% of the level, or of one quantiser step where that is coarser.
    const int band = std::max(narrowBand, quantumBelow(histogram, top));
    // The densest band in the top half octave but for outliers; the highest one among equals.
    int densest = top;
    std::int64_t densestCount = 0;
    const int searchFrom = outliersFrom(histogram, top, polarity.count) - searchBins;
    for (int first = top; first >= std::max(searchFrom, 0); --first) {
        const std::int64_t count = bandCount(histogram, first, first + band);
        if (count > densestCount) densest = first, densestCount = count;
    }
    const bool plateau = 2 * static_cast<std::int64_t>(histogram[top]) >= densestCount;  // hard clipping: one value
    const int body = plateau ? top : humpBody(histogram, densest, densestCount, band);
    // The natural density just below the hump, and well below it: clipping stands out
    // against the first, or, where one value holds the hump or a codec spread it over a
    // few percent, against the second. A codec's ripple also overshoots the level,
    // which tells such a hump from the crest of a steady tone: that piles samples up
    // over the top percent below its peak too (about 8 times the density 16% lower),
    // but has nothing above (where the steps are coarse, the crest's own top steps: a
    // few bands).
    const int crestBands = band > narrowBand ? 4 : 2;
    const bool overshoots = top - densest >= crestBands * band;
    // A hump with samples above it is weighed against the density under its lower edge.
    const int edge = plateau ? body : humpLowerEdge(histogram, body, densestCount, band);
    const int judgedFrom = overshoots ? edge : body;
    const std::int64_t justBelow = bandCount(histogram, judgedFrom - 4 * band, judgedFrom) / 4;
    const std::int64_t wellBelow = bandCount(histogram, body - referenceOffset - 2 * band, body - referenceOffset) / 2;
    const bool standsOut = densestCount >= humpOverBelow * justBelow ||
                           ((plateau || overshoots) && densestCount >= humpOverBelow * wellBelow);
    // The pile: the top value with its band, or the densest band and the hump's body.
    const int bottom = plateau ? top - band + 1 : std::min(body, densest);
    const std::int64_t pile = plateau ? histogram[top] : densestCount;
    if (densestCount < minimumClipped || !standsOut || !outweighsTheValuesBelow(histogram, bottom, pile, plateau))
        return ClipLevels::none;
    return lowerEdge(edge);
}

ClipLevels ClipLevelFinder::levels() const { return {levelOf(positive_), levelOf(negative_)}; }
