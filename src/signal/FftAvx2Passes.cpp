#include "signal/FftVectorPasses.h"

#if FERROTIP_FFT_HAS_AVX2

#include "signal/FftScalarPasses.h"

namespace standardLib::fft {

template <typename T, bool Scaled>
void Avx2Passes::bitReverse(T* data, int m, T scale) {
    bitReversePass<T, Scaled>(data, m, scale);
}

template <typename T, bool Inverse>
int Avx2Passes::leading(T* data, int points, int levelsAfterFirst) {
    return leadingPass<T, Inverse>(data, points, levelsAfterFirst);
}

template <typename T, bool Inverse>
void Avx2Passes::radix8(T* data, int points, int distance, const T* U, int tableSize) {
    radix8Pass<T, Inverse>(data, points, distance, U, tableSize);
}

template <typename T>
void Avx2Passes::unpack(T* data, int n, const T* U) {
    unpackReal(data, n, U);
}

template <typename T>
void Avx2Passes::pack(T* data, int n, const T* U) {
    packReal(data, n, U);
}

#define FERROTIP_FFT_AVX2_INSTANTIATE(T)                                           \
    template void Avx2Passes::bitReverse<T, false>(T*, int, T);                    \
    template void Avx2Passes::bitReverse<T, true>(T*, int, T);                     \
    template int Avx2Passes::leading<T, false>(T*, int, int);                      \
    template int Avx2Passes::leading<T, true>(T*, int, int);                       \
    template void Avx2Passes::radix8<T, false>(T*, int, int, const T*, int);       \
    template void Avx2Passes::radix8<T, true>(T*, int, int, const T*, int);        \
    template void Avx2Passes::unpack<T>(T*, int, const T*);                        \
    template void Avx2Passes::pack<T>(T*, int, const T*);

FERROTIP_FFT_AVX2_INSTANTIATE(float)
FERROTIP_FFT_AVX2_INSTANTIATE(double)

}  // namespace standardLib::fft

#endif
