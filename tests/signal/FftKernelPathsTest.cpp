// Every instruction-set path of the kernels against the level-by-level reference
// graph and against each other, to the bit.
#include "signal/FftKernelPaths.h"

#include "signal/FftReferenceGraph.h"
#include "signal/FftTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <vector>

namespace {

using namespace ferrotip_test;
using standardLib::fft::Isa;
using standardLib::fft::isaAvailable;
using standardLib::fft::isaName;
using standardLib::fft::kernelSet;
using standardLib::fft::KernelSet;

enum class Kind { ComplexForward, ComplexInverse, RealForward, RealInverse };

const Kind allKinds[] = {Kind::ComplexForward, Kind::ComplexInverse, Kind::RealForward, Kind::RealInverse};

const char* kindName(Kind kind) {
    switch (kind) {
    case Kind::ComplexForward: return "complexForward";
    case Kind::ComplexInverse: return "complexInverse";
    case Kind::RealForward: return "realForward";
    case Kind::RealInverse: return "realInverse";
    }
    return "";
}

bool isReal(Kind kind) {
    return kind == Kind::RealForward || kind == Kind::RealInverse;
}

template <typename T>
void runPath(Isa isa, Kind kind, T* data, int m, const T* table) {
    const KernelSet<T>& set = kernelSet<T>(isa);
    switch (kind) {
    case Kind::ComplexForward: set.complexForward(data, m, 1, table); break;
    case Kind::ComplexInverse: set.complexInverse(data, m, 1, table); break;
    case Kind::RealForward: set.realForward(data, m, 1, table); break;
    case Kind::RealInverse: set.realInverse(data, m, 1, table); break;
    }
}

template <typename T>
void runReference(Kind kind, T* data, int m, const T* table) {
    const int n = 1 << m;
    const T inverseScale = static_cast<T>(1.0 / n);
    switch (kind) {
    case Kind::ComplexForward: RefGraph<T, false>::run(data, m, false, T(1), table, n); break;
    case Kind::ComplexInverse: RefGraph<T, true>::run(data, m, true, inverseScale, table, n); break;
    case Kind::RealForward:
        RefGraph<T, false>::run(data, m - 1, true, T(0.5), table, n);
        referenceUnpack(data, n, table);
        break;
    case Kind::RealInverse:
        referencePack(data, n, table);
        RefGraph<T, true>::run(data, m - 1, true, inverseScale, table, n);
        break;
    }
}

// Random values with exact zeros of both signs scattered in, so that the sign of
// every zero result is compared too.
template <typename T>
std::vector<T> inputWithSignedZeros(std::size_t count, std::uint32_t seed) {
    std::vector<T> values = randomValues<T>(count, seed);
    for (std::size_t i = 0; i < count; i += 7)
        values[i] = (i / 7) % 2 ? T(-0.0) : T(0.0);
    return values;
}

template <typename T>
void expectSameBits(const std::vector<T>& got, const std::vector<T>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        if (std::memcmp(&got[i], &want[i], sizeof(T)) != 0) {
            ADD_FAILURE() << "first difference at element " << i << ": " << got[i] << " vs " << want[i];
            return;
        }
    }
}

// As expectSameBits, but any NaN matches any NaN: which operand's payload an
// operation passes on depends on the compiler's order of commutative operands.
template <typename T>
void expectSameBitsOrBothNaN(const std::vector<T>& got, const std::vector<T>& want) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        if (std::isnan(got[i]) && std::isnan(want[i]))
            continue;
        if (std::memcmp(&got[i], &want[i], sizeof(T)) != 0) {
            ADD_FAILURE() << "first difference at element " << i << ": " << got[i] << " vs " << want[i];
            return;
        }
    }
}

template <typename T>
void checkAgainstReference(Isa isa, Kind kind, int m) {
    const int n = 1 << m;
    const std::uint32_t seed = 500u + static_cast<std::uint32_t>(m);
    SCOPED_TRACE(testing::Message() << isaName(isa) << " " << kindName(kind) << " N " << n << " seed " << seed);
    const std::vector<T> table = realTable<T>(n);
    const std::size_t count = isReal(kind) ? n : 2 * static_cast<std::size_t>(n);
    std::vector<T> got = inputWithSignedZeros<T>(count, seed);
    std::vector<T> want = got;
    runPath(isa, kind, got.data(), m, table.data());
    runReference(kind, want.data(), m, table.data());
    expectSameBits(got, want);
}

const Isa vectorPaths[] = {Isa::Avx2, Isa::Avx512};

std::vector<Isa> availablePaths() {
    std::vector<Isa> paths{Isa::Scalar};
    for (Isa isa : vectorPaths)
        if (isaAvailable(isa))
            paths.push_back(isa);
    return paths;
}

template <typename T>
class FftKernelPaths : public testing::Test {};

using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(FftKernelPaths, Precisions);

// Sizes 2^3 (complex) or 2^4 (real) to 2^14 cover every leading form and every
// radix-8 pass count; the largest sizes, where the reversal uses the whole byte,
// are checked on the forward kernels.
TYPED_TEST(FftKernelPaths, EveryPathComputesExactlyTheReferenceGraph) {
    for (Isa isa : availablePaths()) {
        for (Kind kind : allKinds) {
            for (int m = isReal(kind) ? 4 : 3; m <= 14; ++m)
                checkAgainstReference<TypeParam>(isa, kind, m);
        }
        checkAgainstReference<TypeParam>(isa, Kind::ComplexForward, 19);
        checkAgainstReference<TypeParam>(isa, Kind::RealForward, 20);
    }
}

TYPED_TEST(FftKernelPaths, EveryVectorPathMatchesScalarPathAtEverySize) {
    for (Isa isa : vectorPaths) {
        if (!isaAvailable(isa)) {
            std::printf("%s path not available on this CPU: not checked\n", isaName(isa));
            continue;
        }
        for (Kind kind : allKinds) {
            for (int m = isReal(kind) ? 4 : 3; m <= (isReal(kind) ? 20 : 19); ++m) {
                const int n = 1 << m;
                const std::uint32_t seed = 900u + static_cast<std::uint32_t>(m);
                SCOPED_TRACE(testing::Message() << isaName(isa) << " " << kindName(kind) << " N " << n << " seed "
                                                << seed);
                const std::vector<TypeParam> table = realTable<TypeParam>(n);
                const std::size_t count = isReal(kind) ? n : 2 * static_cast<std::size_t>(n);
                std::vector<TypeParam> vector = inputWithSignedZeros<TypeParam>(count, seed);
                std::vector<TypeParam> scalar = vector;
                runPath(isa, kind, vector.data(), m, table.data());
                runPath(Isa::Scalar, kind, scalar.data(), m, table.data());
                expectSameBits(vector, scalar);
            }
        }
    }
}

// Values whose products and sums overflow, vanish or carry NaN through every chain:
// the vector paths must still give the scalar path's bits, signs of zero included.
TYPED_TEST(FftKernelPaths, EveryVectorPathMatchesScalarPathOnSpecialValues) {
    using T = TypeParam;
    const T specials[] = {T(0.0), T(-0.0), std::numeric_limits<T>::infinity(), -std::numeric_limits<T>::infinity(),
                          std::numeric_limits<T>::quiet_NaN(), std::numeric_limits<T>::max(),
                          std::numeric_limits<T>::denorm_min(), -std::numeric_limits<T>::min(), T(1.0), T(-1.0)};
    for (Isa isa : vectorPaths) {
        if (!isaAvailable(isa))
            continue;
        for (Kind kind : allKinds) {
            for (int m = isReal(kind) ? 4 : 3; m <= 12; ++m) {
                SCOPED_TRACE(testing::Message() << isaName(isa) << " " << kindName(kind) << " N " << (1 << m));
                const std::vector<T> table = realTable<T>(1 << m);
                const std::size_t count = isReal(kind) ? std::size_t{1} << m : std::size_t{2} << m;
                std::vector<T> vector(count);
                for (std::size_t i = 0; i < count; ++i)
                    vector[i] = specials[(i * 7 + i / 3) % std::size(specials)];
                std::vector<T> scalar = vector;
                runPath(isa, kind, vector.data(), m, table.data());
                runPath(Isa::Scalar, kind, scalar.data(), m, table.data());
                expectSameBitsOrBothNaN(vector, scalar);
            }
        }
    }
}

TEST(FftKernelPathSelection, ActivePathIsTheBestAvailable) {
    using standardLib::fft::activeIsa;
    EXPECT_TRUE(isaAvailable(Isa::Scalar));
    const Isa best = isaAvailable(Isa::Avx512) ? Isa::Avx512 : isaAvailable(Isa::Avx2) ? Isa::Avx2 : Isa::Scalar;
    EXPECT_EQ(activeIsa(), best);
    RecordProperty("activePath", isaName(activeIsa()));
    std::printf("active transform path: %s\n", isaName(activeIsa()));
}

}  // namespace
